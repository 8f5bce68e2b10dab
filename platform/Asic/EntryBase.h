// Base of every table's entry record.
#pragma once

#include <cstddef>
#include <cstdint>

namespace Asic {

class EntryBase {
  public:
   virtual ~EntryBase() = default;
   // Bytes that one entry occupies in a table's storage blocks.
   virtual std::size_t getBlockSize() const { return blockSize_; }
   // Hash of the entry's identity for the framework's hashed collections of entries. Entries are
   // values; their identity here is the entry type's block size mixed with the seed, which
   // derived records refine by hashing their own fields when they need to.
   std::size_t hash(std::size_t seed) const noexcept;

  protected:
   explicit EntryBase(std::size_t blockSize) noexcept : blockSize_(static_cast<std::uint32_t>(blockSize)) {}
   EntryBase(const EntryBase&) = default;
   EntryBase& operator=(const EntryBase&) = default;

  private:
   std::uint32_t blockSize_;
};

}  // namespace Asic
