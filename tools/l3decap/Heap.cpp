#include "Heap.h"

#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <limits>

namespace L3DecapCli {

namespace {

constexpr std::size_t kHugePage = std::size_t{2} << 20;
// The library's table takes about 190 bytes per entry (docs/PERFORMANCE.md), the agent's state
// store and reports a few dozen more.
constexpr std::size_t kBytesPerTunnel = 256;
// Below this the heap is a few huge pages at most: not worth asking.
constexpr std::size_t kSmallestAsked = 32 * kHugePage;

std::uintptr_t heapStart = 0;

}  // namespace

void keepTheHeap() {
   mallopt(M_MMAP_THRESHOLD, std::numeric_limits<int>::max());
   mallopt(M_TRIM_THRESHOLD, std::numeric_limits<int>::max());
   heapStart = reinterpret_cast<std::uintptr_t>(::sbrk(0));
}

void heapFor(std::size_t tunnels) {
   const std::size_t bytes = tunnels * kBytesPerTunnel;
   if (bytes < kSmallestAsked) {
      return;
   }
   // A block the size of the run's heap, never touched: freed, it stays at the heap's top, where
   // the run's allocations then come from.
   void* block = std::malloc(bytes);
   if (block == nullptr) {
      return;
   }
   // From the heap's start: what the configuration's reading freed is used again first.
   const auto start = reinterpret_cast<std::uintptr_t>(block);
   const std::uintptr_t from = heapStart != 0 && heapStart < start ? heapStart : start;
   const std::uintptr_t begin = (from + kHugePage - 1) / kHugePage * kHugePage;
   const std::uintptr_t end = (start + bytes) / kHugePage * kHugePage;
   ::madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE);  // advice only
   std::free(block);
}

}  // namespace L3DecapCli
