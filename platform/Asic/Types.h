// Basic hardware-table types shared by every software table.
#pragma once

#include <cstdint>
#include <optional>
#include <set>

#include "Fwk/TypeDescriptor.h"

namespace Asic {

// A hardware row index. All ones is the invalid index: no index, or the allocator is exhausted.
using Index = std::uint32_t;
constexpr Index kInvalidIndex = 0xFFFFFFFFU;

// True for an index that is there and invalid: the allocator had none to give.
inline bool isExhausted(std::optional<Index> index) noexcept {
   return index.has_value() && *index == kInvalidIndex;
}

// Ascending set of indices; index suggestions travel in it.
using IndexSet = std::set<Index>;

// A switch chip unit.
using UnitId = std::uint16_t;

// Descriptor under which collections keyed by hardware index publish their changes.
const Fwk::TypeDescriptor& indexType();

}  // namespace Asic
