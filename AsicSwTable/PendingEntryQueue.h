// The pending-entry queue of an entry handle: values whose replacement hardware has not yet
// confirmed, addressed by 32-bit serial positions.
//
// Positions start at 1 and are never reused while the queue lives, also across an emptied queue.
// They compare as serial numbers (p is before q when q - p mod 2^32 is in 1..0x7FFFFFFF).
//
// Storage: blocks chained in a ring (the back block links to the front one). The first block
// holds 4 entries; a block added when the back one is full holds the smallest power of two above
// the number of entries queued, if that is at least 8 (at most 8192), else 4. A block is freed as
// soon as its last entry leaves. An empty queue holds no block; it keeps the next position in
// its own field (the zero-capacity block that would remember it costs an allocation per handle).
// Each thread keeps the last freed 4-entry block for the next one needed: a re-commit or a
// removal queues one value, and its acknowledgement frees the block again.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <new>
#include <utility>

namespace Asic {

template <class T>
class PendingEntryQueue {
 public:
   using Position = std::uint32_t;

   PendingEntryQueue() noexcept = default;
   PendingEntryQueue(const PendingEntryQueue&) = delete;
   PendingEntryQueue& operator=(const PendingEntryQueue&) = delete;
   ~PendingEntryQueue() { clear(); }

   static bool before(Position p, Position q) noexcept {
      const Position d = q - p;
      return d >= 1 && d <= 0x7FFFFFFFU;
   }

   bool empty() const noexcept { return back_ == nullptr; }
   std::uint32_t size() const noexcept { return size_; }
   Position frontPosition() const noexcept { return front()->firstPos + front()->offset; }
   Position backPosition() const noexcept { return nextPos_ - 1; }

   // Appends a copy; returns its position.
   Position enq(const T& entry) {
      if (back_ == nullptr || back_->end() == back_->capacity()) {
         addBlock();
      }
      new (back_->slot(back_->end())) T(entry);
      ++back_->used;
      ++size_;
      return nextPos_++;
   }

   // Moves the front entry out; `position` receives its position. The queue must not be empty.
   T deq(Position& position) {
      Block* f = front();
      position = f->firstPos + f->offset;
      T* slot = f->slot(f->offset);
      T entry(std::move(*slot));
      slot->~T();
      ++f->offset;
      --f->used;
      --size_;
      if (f->used == 0) {
         dropFront();
      }
      return entry;
   }

   const T& frontEntry() const noexcept { return *front()->slot(front()->offset); }
   const T& backEntry() const noexcept { return *back_->slot(back_->end() - 1); }

   // The entry at `position`, or null when the position is not in the queue.
   const T* at(Position position) const noexcept {
      if (empty() || before(position, frontPosition()) || before(backPosition(), position)) {
         return nullptr;
      }
      for (const Block* b = front();; b = b->next) {
         const Position first = b->firstPos + b->offset;
         if (position - first < static_cast<Position>(b->used)) {
            return b->slot(b->offset + (position - first));
         }
         if (b == back_) {
            return nullptr;
         }
      }
   }

   // Destroys every entry and frees the storage; positions go on after the last one used.
   void clear() noexcept {
      while (back_ != nullptr) {
         Block* f = front();
         for (std::uint32_t i = 0; i < f->used; ++i) {
            f->slot(f->offset + i)->~T();
         }
         size_ -= f->used;
         f->used = 0;
         dropFront();
      }
   }

   // Number of storage blocks and the capacity of each, front to back (for tests).
   template <class F>
   void forEachBlockCapacity(F&& f) const {
      if (empty()) {
         return;
      }
      for (const Block* b = front();; b = b->next) {
         f(b->capacity());
         if (b == back_) {
            return;
         }
      }
   }

 private:
   static constexpr std::uint32_t kFirstCapacityExponent = 2;  // 4 entries

   struct Block {
      Position firstPos;
      std::uint32_t offset : 14;
      std::uint32_t used : 14;
      std::uint32_t capExp : 4;
      Block* next;

      std::uint32_t capacity() const noexcept { return 1U << capExp; }
      // One past the last used slot.
      std::uint32_t end() const noexcept { return static_cast<std::uint32_t>(offset + used); }
      T* slot(std::uint32_t i) noexcept {
         return std::launder(
             reinterpret_cast<T*>(reinterpret_cast<char*>(this + 1) + i * sizeof(T)));
      }
      const T* slot(std::uint32_t i) const noexcept { return const_cast<Block*>(this)->slot(i); }
   };
   static_assert(alignof(T) <= alignof(Block), "entries must fit the block's alignment");

   Block* front() const noexcept { return back_->next; }

   static std::uint32_t nextCapacityExponent(std::uint32_t queued) noexcept {
      const std::uint32_t cap = std::bit_ceil(queued + 1);  // smallest power of two above
      if (cap < 8) {
         return kFirstCapacityExponent;
      }
      return static_cast<std::uint32_t>(std::countr_zero(cap < 8192 ? cap : 8192U));
   }

   // The thread's spare first-size block (raw storage); freed when the thread ends, and not kept
   // by queues that free blocks after that (in destructors of static objects).
   struct SpareBlock {
      void* storage = nullptr;
      bool gone = false;
      ~SpareBlock() {
         ::operator delete(storage);
         storage = nullptr;
         gone = true;
      }
   };
   static SpareBlock& spare() noexcept {
      static thread_local SpareBlock s;
      return s;
   }

   static void* blockStorage(std::uint32_t exp) {
      if (exp == kFirstCapacityExponent) {
         if (void* kept = std::exchange(spare().storage, nullptr)) {
            return kept;
         }
      }
      return ::operator new(sizeof(Block) + (std::size_t{1} << exp) * sizeof(T));
   }

   static void blockFree(Block* b) noexcept {
      const bool firstSize = b->capExp == kFirstCapacityExponent;
      b->~Block();
      SpareBlock& s = spare();
      if (firstSize && s.storage == nullptr && !s.gone) {
         s.storage = b;
      } else {
         ::operator delete(b);
      }
   }

   void addBlock() {
      const std::uint32_t exp =
          back_ == nullptr ? kFirstCapacityExponent : nextCapacityExponent(size_);
      Block* b = new (blockStorage(exp)) Block{nextPos_, 0, 0, exp, nullptr};
      if (back_ == nullptr) {
         b->next = b;
      } else {
         b->next = back_->next;
         back_->next = b;
      }
      back_ = b;
   }

   void dropFront() noexcept {
      Block* f = front();
      if (f == back_) {
         back_ = nullptr;
      } else {
         back_->next = f->next;
      }
      blockFree(f);
   }

   Block* back_ = nullptr;
   Position nextPos_ = 1;
   std::uint32_t size_ = 0;
};

}  // namespace Asic
