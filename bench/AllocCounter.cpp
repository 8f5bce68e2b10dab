#include "AllocCounter.h"

#include <malloc.h>

#include <cstdlib>
#include <new>

namespace Bench::Heap {
namespace {
std::uint64_t allocations = 0;
std::uint64_t frees = 0;
std::int64_t liveBytes = 0;
bool trackBytes = false;
bool recording = false;
std::size_t recorded = 0;
std::size_t recordedSizes[kMaxRecorded];

void* counted(void* p) noexcept {
   if (p != nullptr) {
      ++allocations;
      if (!trackBytes && !recording) [[likely]] {
         return p;
      }
      const std::size_t size = malloc_usable_size(p);
      liveBytes += static_cast<std::int64_t>(size);
      if (recording) [[unlikely]] {
         if (recorded < kMaxRecorded) {
            recordedSizes[recorded] = size;
         }
         ++recorded;
      }
   }
   return p;
}

void release(void* p) noexcept {
   if (p != nullptr) {
      ++frees;
      if (trackBytes) [[unlikely]] {
         liveBytes -= static_cast<std::int64_t>(malloc_usable_size(p));
      }
      std::free(p);
   }
}

void* allocate(std::size_t size) {
   if (void* p = counted(std::malloc(size == 0 ? 1 : size))) {
      return p;
   }
   throw std::bad_alloc();
}

void* allocateAligned(std::size_t size, std::align_val_t alignment) {
   const auto a = static_cast<std::size_t>(alignment);
   const std::size_t rounded = (size + a - 1) / a * a;
   if (void* p = counted(std::aligned_alloc(a, rounded == 0 ? a : rounded))) {
      return p;
   }
   throw std::bad_alloc();
}
}  // namespace

Snapshot now() noexcept { return Snapshot{allocations, frees, liveBytes}; }

void trackBytesIs(bool on) noexcept { trackBytes = on; }

void recordingBegin() noexcept {
   recorded = 0;
   recording = true;
}

std::size_t recordingEnd(std::size_t (&sizes)[kMaxRecorded]) noexcept {
   recording = false;
   for (std::size_t i = 0; i < recorded && i < kMaxRecorded; ++i) {
      sizes[i] = recordedSizes[i];
   }
   return recorded;
}

}  // namespace Bench::Heap

using Bench::Heap::allocate;
using Bench::Heap::allocateAligned;
using Bench::Heap::release;

// NOLINTBEGIN(misc-new-delete-overloads): every form is replaced.
void* operator new(std::size_t size) { return allocate(size); }
void* operator new[](std::size_t size) { return allocate(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
   return Bench::Heap::counted(std::malloc(size == 0 ? 1 : size));
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
   return Bench::Heap::counted(std::malloc(size == 0 ? 1 : size));
}
void* operator new(std::size_t size, std::align_val_t a) { return allocateAligned(size, a); }
void* operator new[](std::size_t size, std::align_val_t a) { return allocateAligned(size, a); }

void operator delete(void* p) noexcept { release(p); }
void operator delete[](void* p) noexcept { release(p); }
void operator delete(void* p, std::size_t) noexcept { release(p); }
void operator delete[](void* p, std::size_t) noexcept { release(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { release(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { release(p); }
void operator delete(void* p, std::align_val_t) noexcept { release(p); }
void operator delete[](void* p, std::align_val_t) noexcept { release(p); }
void operator delete(void* p, std::size_t, std::align_val_t) noexcept { release(p); }
void operator delete[](void* p, std::size_t, std::align_val_t) noexcept { release(p); }
// NOLINTEND(misc-new-delete-overloads)
