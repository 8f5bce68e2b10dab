// Storage for the nodes of a node-based standard container that one thread owns: nodes of one
// size are cut from chunks, a freed node goes on a free list for the next allocation, and the
// chunks go back to the heap with the pool. A node then costs a few instructions instead of a
// heap allocation, and no allocator header of its own.
//
// A pool keeps what it once held: a container that shrank keeps its nodes for its next growth.
// Not thread-safe: the owning container changes on its owner's thread only.
#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <new>
#include <utility>
#include <vector>

namespace Fwk {

class NodePool {
  public:
   NodePool() = default;
   NodePool(const NodePool&) = delete;
   NodePool& operator=(const NodePool&) = delete;

   // The size of the nodes the pool serves: fixed by the first node it hands out (0 until then).
   std::size_t nodeSize() const noexcept { return nodeSize_; }
   // Nodes handed out and not freed.
   std::size_t nodesInUse() const noexcept { return inUse_; }

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

   // A node of the pool's size.
   void* allocate() {
      ++inUse_;
      if (free_ != nullptr) {
         return std::exchange(free_, free_->next);
      }
      if (next_ == end_) {
         addChunk();
      }
      return std::exchange(next_, next_ + nodeSize_);
   }

   void deallocate(void* node) noexcept {
      --inUse_;
      free_ = ::new (node) FreeNode{free_};
   }

  private:
   struct FreeNode {
      FreeNode* next;
   };

   // Chunks double from 16 nodes up to 256: small tables stay small, large ones pay one heap
   // allocation per 256 nodes and leave at most one chunk's worth unused.
   void addChunk() {
      const std::size_t doublings = std::min<std::size_t>(chunks_.size(), 4);
      const std::size_t nodes = std::size_t{16} << doublings;
      chunks_.push_back(std::make_unique<std::byte[]>(nodes * nodeSize_));
      next_ = chunks_.back().get();
      end_ = next_ + nodes * nodeSize_;
   }

   std::size_t nodeSize_ = 0;   // rounded up to the nodes' alignment
   std::size_t requested_ = 0;  // as the container asks for it
   std::size_t inUse_ = 0;
   FreeNode* free_ = nullptr;
   std::byte* next_ = nullptr;  // the current chunk's first node never handed out
   std::byte* end_ = nullptr;
   std::vector<std::unique_ptr<std::byte[]>> chunks_;
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
      if (n == 1 && pool_->serves(sizeof(T), alignof(T))) {
         return static_cast<T*>(pool_->allocate());
      }
      return std::allocator<T>().allocate(n);
   }
   void deallocate(T* p, std::size_t n) noexcept {
      if (n == 1 && pool_->serves(sizeof(T), alignof(T))) {
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
   NodePool* pool_;
};

}  // namespace Fwk
