// Heap accounting of the benchmark binary: the global operator new and delete are replaced (in
// AllocCounter.cpp) by versions that count allocations and, while byte tracking is on, the bytes
// the allocator reserved for them (malloc_usable_size, so rounding to the allocator's size
// classes is included; the allocator's own 8-byte chunk header per allocation is not). Byte
// tracking costs a malloc_usable_size per operation, so only the memory measurement turns it on;
// the time measurements count calls only.
//
// The counters are plain integers: the benchmarks run on one thread, and an atomic increment in
// every allocation would tax the library and the baseline alike.
#pragma once

#include <cstddef>
#include <cstdint>

namespace Bench::Heap {

struct Snapshot {
   std::uint64_t allocations = 0;  // calls to operator new since start
   std::uint64_t frees = 0;        // calls to operator delete (non-null) since start
   std::int64_t liveBytes = 0;     // bytes reserved for blocks not yet freed
};

Snapshot now() noexcept;

// Turns byte tracking on or off. Blocks allocated while it was off and freed while it is on make
// liveBytes drift: compare snapshots of objects created after turning it on.
void trackBytesIs(bool on) noexcept;

// Records the sizes (as reserved) of the allocations made until recordingEnd(), up to
// kMaxRecorded of them; for the per-operation breakdown.
constexpr std::size_t kMaxRecorded = 64;
void recordingBegin() noexcept;
// Number of allocations recorded (the first kMaxRecorded sizes are in `sizes`).
std::size_t recordingEnd(std::size_t (&sizes)[kMaxRecorded]) noexcept;

}  // namespace Bench::Heap
