// A hash set of small slots in one array: open addressing with linear probing, a power of two of
// slots at most three quarters used, so a member costs no node of its own. Erasing shifts the
// later members of the probe run back into the hole (no tombstones), so lookups stop at the first
// vacant slot however many members came and went.
//
// What a slot holds and how it is found is the `Traits`' business, which lets a slot carry only
// what its lookups need (an index and a part of its key's hash; a pointer to an object that knows
// its key). `Traits` provides:
//   using Slot = ...;  // default-constructed: vacant; movable
//   using Key = ...;
//   static bool occupied(const Slot&);
//   std::uint64_t hash(const Key&) const;     // its top bits choose the home slot
//   std::uint64_t hashOf(const Slot&) const;  // the hash of the slot's key
//   bool holds(const Slot&, const Key&, std::uint64_t hash) const;
//
// Where a slot lies is valid until the next insert or erase: both move slots.
#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace Fwk {

// A 64-bit finaliser: every bit of the input reaches the top bits that choose a slot, so keys in
// an arithmetic progression, as multiplicative key spreading makes them, do not cluster.
constexpr std::uint64_t probeMix(std::uint64_t x) noexcept {
   x = (x ^ (x >> 33)) * 0xff51afd7ed558ccdULL;
   x = (x ^ (x >> 33)) * 0xc4ceb9fe1a85ec53ULL;
   return x ^ (x >> 33);
}

template <class Traits>
class ProbedTable {
  public:
   using Slot = typename Traits::Slot;
   using Key = typename Traits::Key;

   explicit ProbedTable(Traits traits = Traits()) : traits_(std::move(traits)) {}

   std::size_t size() const noexcept { return size_; }
   bool empty() const noexcept { return size_ == 0; }

   // The key's slot, or null.
   const Slot* find(const Key& key) const {
      return size_ == 0 ? nullptr : probe(key, traits_.hash(key));
   }

   // Adds a slot whose key is not in the table; returns where it now lies.
   const Slot& insert(Slot slot) {
      if ((size_ + 1) * 4 > slots_.size() * 3) {
         grow();
      }
      ++size_;
      return place(std::move(slot));
   }

   // Removes the key's slot and returns it (vacant when the key was not in the table).
   Slot erase(const Key& key) {
      const Slot* found = find(key);
      if (found == nullptr) {
         return Slot();
      }
      const auto hole = static_cast<std::size_t>(found - slots_.data());
      Slot removed = std::move(slots_[hole]);
      closeHole(hole);
      --size_;
      return removed;
   }

   // Empties the table and gives its slots back.
   // Empties the table and gives its slots back. The members go after the table is empty, so
   // whatever their destruction runs finds it so.
   void clear() noexcept {
      const std::vector<Slot> gone = std::exchange(slots_, {});
      shift_ = 64;
      size_ = 0;
   }

   // The occupied slots in array order, which is no order a caller may rely on. A walk starts
   // with a scan for the first member: emptying the table by erasing its first member over and
   // over is quadratic, erasing the keys of a snapshot is not.
   class Iterator {
     public:
      Iterator(const Slot* at, const Slot* end) : at_(at), end_(end) { skipVacant(); }
      const Slot& operator*() const noexcept { return *at_; }
      Iterator& operator++() noexcept {
         ++at_;
         skipVacant();
         return *this;
      }
      bool operator==(const Iterator& o) const noexcept { return at_ == o.at_; }

     private:
      void skipVacant() noexcept {
         while (at_ != end_ && !Traits::occupied(*at_)) {
            ++at_;
         }
      }
      const Slot* at_;
      const Slot* end_;
   };
   Iterator begin() const { return Iterator(slots_.data(), slots_.data() + slots_.size()); }
   Iterator end() const {
      const Slot* last = slots_.data() + slots_.size();
      return Iterator(last, last);
   }

  private:
   std::size_t home(std::uint64_t hash) const noexcept {
      return static_cast<std::size_t>(hash >> shift_);
   }
   std::size_t next(std::size_t s) const noexcept { return (s + 1) & (slots_.size() - 1); }

   const Slot* probe(const Key& key, std::uint64_t hash) const {
      for (std::size_t s = home(hash);; s = next(s)) {
         const Slot& slot = slots_[s];
         if (!Traits::occupied(slot)) {
            return nullptr;
         }
         if (traits_.holds(slot, key, hash)) {
            return &slot;
         }
      }
   }

   const Slot& place(Slot slot) {
      std::size_t s = home(traits_.hashOf(slot));
      while (Traits::occupied(slots_[s])) {
         s = next(s);
      }
      slots_[s] = std::move(slot);
      return slots_[s];
   }

   // Moves back every later member of the run that may sit in the hole (its home does not lie
   // after the hole, cyclically), until the run ends; the last hole becomes vacant.
   void closeHole(std::size_t hole) {
      const std::size_t mask = slots_.size() - 1;
      for (std::size_t s = next(hole); Traits::occupied(slots_[s]); s = next(s)) {
         const std::size_t fromHome = (s - home(traits_.hashOf(slots_[s]))) & mask;
         if (fromHome >= ((s - hole) & mask)) {
            slots_[hole] = std::move(slots_[s]);
            hole = s;
         }
      }
      slots_[hole] = Slot();
   }

   // Doubles the slots (16 at first) and places every member again.
   void grow() {
      std::vector<Slot> old(std::max<std::size_t>(16, slots_.size() * 2));
      old.swap(slots_);
      shift_ = 64 - static_cast<unsigned>(std::countr_zero(slots_.size()));
      for (Slot& slot : old) {
         if (Traits::occupied(slot)) {
            place(std::move(slot));
         }
      }
   }

   Traits traits_;
   std::vector<Slot> slots_;  // a power of two of them, at most three quarters used
   unsigned shift_ = 64;      // 64 minus log2 of the slot count
   std::size_t size_ = 0;
};

}  // namespace Fwk
