// The simulated chip's state: its two hardware tables, kept in a memory-mapped chip-state file so
// that they survive the agent's process restarts, as a real chip's tables survive an agent
// restart.
//
// File layout (little-endian):
//   header (64 bytes): magic "L3DSIMCS", format version, header size, decap row count, profile
//     row count, row size, total row writes, header check (CRC-32 of the header's first 60 bytes)
//   decap rows   (decap row count x 8 bytes): state, profile index, flags, check, VRF (32 bits)
//   profile rows (profile row count x 8 bytes): state, two spare bytes, check, profile id
// A row's check is a CRC-8 over its other bytes and its index, so a damaged or shifted row is
// found when the file is opened. A file that fails any check is refused, and never written.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>

namespace Sim {

// A chip-state file that cannot be used; the message names the file and the problem.
class ChipStateError : public std::runtime_error {
  public:
   using std::runtime_error::runtime_error;
};

enum class RowState : std::uint8_t { free = 0, valued = 1, emptied = 2 };

// A row of the chip's L3 IIF decap table.
struct DecapRow {
   RowState state = RowState::free;
   std::uint8_t profileIndex = 0;
   bool ipv4UcEnable = false;
   bool ipv6UcEnable = false;
   bool trustDscp = false;
   std::uint32_t vrf = 0;
   bool operator==(const DecapRow&) const = default;
};

// A row of the chip's L3 IIF profile table: which profile it holds.
struct ProfileRow {
   RowState state = RowState::free;
   std::uint32_t profileId = 0;
   bool operator==(const ProfileRow&) const = default;
};

class ChipState {
  public:
   static constexpr std::uint32_t kFormatVersion = 1;
   static constexpr std::uint32_t kProfileRows = 256;
   static constexpr std::uint32_t kDefaultDecapRows = 4096;
   static constexpr std::uint32_t kMaxDecapRows = 1U << 24;

   // Creates a new chip-state file with every row free. Refuses to replace an existing file.
   static ChipState create(const std::string& path, std::uint32_t decapRows);
   // Opens an existing file after checking all of it; throws ChipStateError naming the problem.
   // `writable` false maps it read-only (nothing can change it).
   static ChipState open(const std::string& path, bool writable = true);
   // A chip whose state lives in memory only (tests, benchmarks).
   static ChipState inMemory(std::uint32_t decapRows);
   // An in-memory copy of another chip's state (a dry run works on it).
   static ChipState copyOf(const ChipState& other);
   // Checks an image as open() does, without a file; returns the problem or nothing.
   static std::optional<std::string> check(const void* image, std::size_t size);

   ChipState(ChipState&& o) noexcept;
   ChipState& operator=(ChipState&& o) noexcept;
   ChipState(const ChipState&) = delete;
   ChipState& operator=(const ChipState&) = delete;
   ~ChipState();

   const std::string& path() const noexcept { return path_; }
   std::uint32_t decapRows() const noexcept;
   std::uint32_t profileRows() const noexcept { return kProfileRows; }
   std::uint64_t rowWrites() const noexcept;

   DecapRow decapRow(std::uint32_t index) const;
   void decapRowIs(std::uint32_t index, const DecapRow& row);
   ProfileRow profileRow(std::uint32_t index) const;
   void profileRowIs(std::uint32_t index, const ProfileRow& row);

   // Flushes the mapping to the file.
   void sync();

  private:
   ChipState(std::string path, std::uint8_t* base, std::size_t size, int fd, bool writable);
   std::uint8_t* rowAddress(std::uint32_t table, std::uint32_t index) const;
   void countWrite();
   void release() noexcept;

   std::string path_;
   std::uint8_t* base_ = nullptr;
   std::size_t size_ = 0;
   int fd_ = -1;  // -1 for an in-memory chip
   bool writable_ = false;
};

}  // namespace Sim
