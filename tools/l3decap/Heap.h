// The agent's heap at scale: a run at a million tunnels makes a heap of a few hundred megabytes,
// which costs less in huge pages (fewer page faults and TLB misses) and kept once grown.
#pragma once

#include <cstddef>

namespace L3DecapCli {

// Large blocks come from the heap, and freed memory stays there: its pages are faulted in once
// rather than at every growth of a large vector. Called first thing.
void keepTheHeap();
// Asks the kernel for huge pages under the heap a run of `tunnels` tunnels is about to grow
// (where it grants them only on request); a small run or a refusal changes nothing.
void heapFor(std::size_t tunnels);

}  // namespace L3DecapCli
