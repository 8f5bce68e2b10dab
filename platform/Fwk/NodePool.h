// Storage for the nodes of a node-based standard container that one thread owns: nodes of one
// size are cut from chunks, a freed node goes on a free list for the next allocation, and the
// chunks go back to the heap with the pool. A node then costs a few instructions instead of a
// heap allocation, and no allocator header of its own.
//
// A pool keeps what it once held: a container that shrank keeps its nodes for its next growth.
// NodePool is not thread-safe (the owning container changes on its owner's thread only);
// SharedNodePool serves objects of one kind that owners on several threads make and free.
//
// Under AddressSanitizer a free node and a chunk's unused tail are poisoned, so a use after free
// of a pooled object is reported as it would be for the heap.
#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <mutex>
#include <new>
#include <utility>
#include <vector>

#include "Fwk/Ptr.h"

#if defined(__SANITIZE_ADDRESS__)
#define FWK_NODE_POOL_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define FWK_NODE_POOL_ASAN 1
#endif
#endif
#if defined(FWK_NODE_POOL_ASAN)
#include <sanitizer/asan_interface.h>
#endif

namespace Fwk {

namespace Detail {
inline void poison([[maybe_unused]] void* at, [[maybe_unused]] std::size_t size) noexcept {
#if defined(FWK_NODE_POOL_ASAN)
   ASAN_POISON_MEMORY_REGION(at, size);
#endif
}
inline void unpoison([[maybe_unused]] void* at, [[maybe_unused]] std::size_t size) noexcept {
#if defined(FWK_NODE_POOL_ASAN)
   ASAN_UNPOISON_MEMORY_REGION(at, size);
#endif
}
}  // namespace Detail

class NodePool {
 public:
   NodePool() = default;
   NodePool(const NodePool&) = delete;
   NodePool& operator=(const NodePool&) = delete;
   ~NodePool() {
      for (std::size_t i = 0; i < chunks_.size(); ++i) {
         Detail::unpoison(chunks_[i].get(), chunkNodes(i) * nodeSize_);
      }
   }

   // The size of the nodes the pool serves: fixed by the first node it hands out (0 until then).
   std::size_t nodeSize() const noexcept { return nodeSize_; }
   // Nodes handed out and not freed.
   std::size_t nodesInUse() const noexcept { return inUse_; }
   // Bytes of the pool's chunks that no node in use occupies: held, and free for the next nodes.
   std::size_t bytesFree() const noexcept { return bytesHeld_ - inUse_ * nodeSize_; }

   // Whether a node of this size and alignment can come from the pool. The first node asked for
   // fixes the size; the heap's alignment, which every chunk has, bounds the alignment.
   bool serves(std::size_t size, std::size_t align) noexcept {
      if (align > __STDCPP_DEFAULT_NEW_ALIGNMENT__) {
         return false;
      }
      if (nodeSize_ == 0) {
         const std::size_t step = std::max(align, alignof(FreeNode));
         nodeSize_ = (std::max(size, sizeof(FreeNode)) + step - 1) / step * step;
         requested_ = size;
      }
      return size == requested_;
   }

   // A node of the pool's size. Always inlined: the call would cost as much as the work.
   [[gnu::always_inline]] void* allocate() {
      ++inUse_;
      if (free_ != nullptr) {
         Detail::unpoison(free_, nodeSize_);
         return std::exchange(free_, free_->next);
      }
      if (next_ == end_) [[unlikely]] {
         addChunk();
      }
      Detail::unpoison(next_, nodeSize_);
      return std::exchange(next_, next_ + nodeSize_);
   }

   [[gnu::always_inline]] void deallocate(void* node) noexcept {
      --inUse_;
      free_ = ::new (node) FreeNode{free_};
      Detail::poison(node, nodeSize_);
   }

 private:
   struct FreeNode {
      FreeNode* next;
   };

   // Chunks double from 16 nodes up to 64: small tables stay small, large ones pay one heap
   // allocation per 64 nodes and leave at most one chunk's worth unused.
   static std::size_t chunkNodes(std::size_t chunk) noexcept {
      return std::size_t{16} << std::min<std::size_t>(chunk, 2);
   }
   [[gnu::noinline]] void addChunk() {
      const std::size_t nodes = chunkNodes(chunks_.size());
      chunks_.push_back(std::make_unique_for_overwrite<std::byte[]>(nodes * nodeSize_));
      next_ = chunks_.back().get();
      end_ = next_ + nodes * nodeSize_;
      bytesHeld_ += nodes * nodeSize_;
      Detail::poison(next_, nodes * nodeSize_);
   }

   std::size_t nodeSize_ = 0;   // rounded up to the nodes' alignment
   std::size_t requested_ = 0;  // as the container asks for it
   std::size_t inUse_ = 0;
   std::size_t bytesHeld_ = 0;
   FreeNode* free_ = nullptr;
   std::byte* next_ = nullptr;  // the current chunk's first node never handed out
   std::byte* end_ = nullptr;
   std::vector<std::unique_ptr<std::byte[]>> chunks_;
};

// A NodePool for objects of one kind that owners on several threads make and free (the entry
// handles of tables on different threads): in the framework's multi-threaded mode a mutex guards
// the pool, single-threaded nothing does (the switch in Fwk/Ptr.h). An object of another size
// than the pool's comes from the heap.
class SharedNodePool {
 public:
   void* allocate(std::size_t size, std::size_t align) {
      if (!Detail::multiThreadedMode()) {
         return take(size, align);
      }
      const std::lock_guard<std::mutex> lock(mutex_);
      return take(size, align);
   }
   void deallocate(void* object, std::size_t size, std::size_t align) noexcept {
      if (!Detail::multiThreadedMode()) {
         give(object, size, align);
         return;
      }
      const std::lock_guard<std::mutex> lock(mutex_);
      give(object, size, align);
   }
   // Statistics, read without the mutex: exact only while no other thread uses the pool.
   std::size_t nodesInUse() const noexcept { return pool_.nodesInUse(); }
   std::size_t bytesFree() const noexcept { return pool_.bytesFree(); }

 private:
   void* take(std::size_t size, std::size_t align) {
      return pool_.serves(size, align) ? pool_.allocate()
                                       : ::operator new(size, std::align_val_t(align));
   }
   void give(void* object, std::size_t size, std::size_t align) noexcept {
      if (pool_.serves(size, align)) {
         pool_.deallocate(object);
      } else {
         ::operator delete(object, std::align_val_t(align));
      }
   }

   NodePool pool_;
   std::mutex mutex_;
};

// A standard allocator over a NodePool: single objects of the pool's node size come from the pool,
// everything else (a hash table's bucket array) from the heap. The pool must outlive every
// container and node that uses it.
template <class T>
class PoolAllocator {
 public:
   using value_type = T;

   explicit PoolAllocator(NodePool* pool) noexcept : pool_(pool) {}
   template <class U>
   PoolAllocator(const PoolAllocator<U>& other) noexcept : pool_(other.pool()) {}

   T* allocate(std::size_t n) {
      if (n == 1 && pool_->serves(kSize, alignof(T))) {
         return static_cast<T*>(pool_->allocate());
      }
      return std::allocator<T>().allocate(n);
   }
   void deallocate(T* p, std::size_t n) noexcept {
      if (n == 1 && pool_->serves(kSize, alignof(T))) {
         pool_->deallocate(p);
      } else {
         std::allocator<T>().deallocate(p, n);
      }
   }

   NodePool* pool() const noexcept { return pool_; }
   template <class U>
   bool operator==(const PoolAllocator<U>& other) const noexcept {
      return pool_ == other.pool();
   }

 private:
   // T is whatever the container allocates, a hash table's bucket pointers included.
   static constexpr std::size_t kSize = sizeof(T);  // NOLINT(bugprone-sizeof-expression)
   NodePool* pool_;
};

}  // namespace Fwk
