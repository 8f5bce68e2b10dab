// The allocator's index by key: keys (a key-type number and the key's bits) to indices, in one
// array of 16-byte slots with open addressing and linear probing, so a bound key costs no node
// of its own. Erasing shifts the later members of the probe run back into the hole (no
// tombstones), so lookups stop at the first empty slot however many keys came and went.
#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "Asic/Types.h"

namespace Asic {

// Key-type numbers start at 1; 0 stands for no key (an empty slot, an index without owner).
inline constexpr std::uint32_t kNoKeyType = 0;

// Every bit of the key reaches the top bits that choose the slot (a 64-bit finaliser): keys in
// an arithmetic progression, as multiplicative key spreading makes them, must not cluster.
struct KeyIndexHash {
   std::uint64_t operator()(std::uint32_t type, std::uint64_t bits) const noexcept {
      std::uint64_t x = bits + type * 0x9e3779b97f4a7c15ULL;
      x = (x ^ (x >> 33)) * 0xff51afd7ed558ccdULL;
      x = (x ^ (x >> 33)) * 0xc4ceb9fe1a85ec53ULL;
      return x ^ (x >> 33);
   }
};

// `Hash` gives a 64-bit hash whose top bits choose the slot (tests supply colliding ones).
template <class Hash = KeyIndexHash>
class KeyIndexTable {
  public:
   std::size_t size() const noexcept { return size_; }

   // The index of the key, or the invalid index.
   Index find(std::uint32_t type, std::uint64_t bits) const noexcept {
      if (size_ == 0) {
         return kInvalidIndex;
      }
      for (std::size_t s = home(type, bits);; s = next(s)) {
         const Slot& slot = slots_[s];
         if (slot.type == kNoKeyType) {
            return kInvalidIndex;
         }
         if (slot.bits == bits && slot.type == type) {
            return slot.index;
         }
      }
   }

   // Adds a key that is not in the table.
   void insert(std::uint32_t type, std::uint64_t bits, Index index) {
      if ((size_ + 1) * 4 > slots_.size() * 3) {
         grow();
      }
      place(Slot{bits, index, type});
      ++size_;
   }

   // Removes the key; false when it was not in the table.
   bool erase(std::uint32_t type, std::uint64_t bits) noexcept {
      if (size_ == 0) {
         return false;
      }
      std::size_t hole = home(type, bits);
      for (;; hole = next(hole)) {
         const Slot& slot = slots_[hole];
         if (slot.type == kNoKeyType) {
            return false;
         }
         if (slot.bits == bits && slot.type == type) {
            break;
         }
      }
      closeHole(hole);
      --size_;
      return true;
   }

  private:
   struct Slot {
      std::uint64_t bits = 0;
      Index index = kInvalidIndex;
      std::uint32_t type = kNoKeyType;
   };

   std::size_t home(std::uint32_t type, std::uint64_t bits) const noexcept {
      return static_cast<std::size_t>(Hash()(type, bits) >> shift_);
   }
   std::size_t next(std::size_t s) const noexcept { return (s + 1) & (slots_.size() - 1); }

   void place(const Slot& slot) noexcept {
      std::size_t s = home(slot.type, slot.bits);
      while (slots_[s].type != kNoKeyType) {
         s = next(s);
      }
      slots_[s] = slot;
   }

   // Moves back every later member of the run that may sit in the hole (its home does not lie
   // after the hole, cyclically), until the run ends; the last hole becomes empty.
   void closeHole(std::size_t hole) noexcept {
      const std::size_t mask = slots_.size() - 1;
      for (std::size_t s = next(hole); slots_[s].type != kNoKeyType; s = next(s)) {
         const std::size_t fromHome = (s - home(slots_[s].type, slots_[s].bits)) & mask;
         if (fromHome >= ((s - hole) & mask)) {
            slots_[hole] = slots_[s];
            hole = s;
         }
      }
      slots_[hole] = Slot{};
   }

   // Doubles the slots (16 at first) and places every key again.
   void grow() {
      std::vector<Slot> old(std::max<std::size_t>(16, slots_.size() * 2));
      old.swap(slots_);
      shift_ = 64 - static_cast<unsigned>(std::countr_zero(slots_.size()));
      for (const Slot& slot : old) {
         if (slot.type != kNoKeyType) {
            place(slot);
         }
      }
   }

   std::vector<Slot> slots_;  // a power of two of them, at most three quarters used
   unsigned shift_ = 64;      // 64 minus log2 of the slot count
   std::size_t size_ = 0;
};

}  // namespace Asic
