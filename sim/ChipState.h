// The simulated chip's state: its two hardware tables, kept in a memory-mapped chip-state file so
// that they survive the agent's process restarts, as a real chip's tables survive an agent
// restart.
//
// File layout (little-endian):
//   header (64 bytes): magic "L3DSIMCS", format version, header size, decap row count, profile
//     row count, row size, chip id (16 random bytes), header check (CRC-32 of the first 60 bytes)
//   decap rows   (decap row count x 8 bytes): state, profile index, flags, check, VRF (32 bits)
//   profile rows (profile row count x 8 bytes): state, two spare bytes, check, profile id
// A row's check is a CRC-8 over its other bytes and its index, so a damaged or shifted row is
// found when the file is opened. A file that fails any check is refused, and never written.
//
// Surviving a kill at any moment: the header never changes after the file is made; a row and its
// check are one aligned 8-byte store; a new file is written aside (<file>.new) and renamed into
// place only when complete.
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
   static constexpr std::uint32_t kFormatVersion = 2;
   static constexpr std::uint32_t kProfileRows = 256;
   static constexpr std::uint32_t kDefaultDecapRows = 4096;
   static constexpr std::uint32_t kMaxDecapRows = 1U << 24;

   // Creates a new chip-state file with every row free and a new random id. Refuses to replace
   // an existing file. The caller holds the chip's lock (ChipLock): <path>.new is its own.
   static ChipState create(const std::string& path, std::uint32_t decapRows);
   // Opens an existing file after checking all of it; throws ChipStateError naming the problem.
   // `writable` false maps it read-only (nothing can change it). A symbolic link is refused.
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
   // The random id the chip got when it was made, as 32 hex digits: the agent's state store
   // names the chip it belongs to by it.
   std::string id() const;

   DecapRow decapRow(std::uint32_t index) const;
   void decapRowIs(std::uint32_t index, const DecapRow& row);
   ProfileRow profileRow(std::uint32_t index) const;
   void profileRowIs(std::uint32_t index, const ProfileRow& row);

   // Flushes the mapping to the file.
   void sync();

  private:
   ChipState(std::string path, std::uint8_t* base, std::size_t size, int fd, bool writable);
   std::uint8_t* rowAddress(std::uint32_t table, std::uint32_t index) const;
   void rowIs(std::uint32_t table, std::uint32_t index, std::uint8_t (&bytes)[8]);
   void release() noexcept;

   std::string path_;
   std::uint8_t* base_ = nullptr;
   std::size_t size_ = 0;
   int fd_ = -1;  // -1 for an in-memory chip
   bool writable_ = false;
};

}  // namespace Sim
