// Byte-level access to a ring-buffer trace image, shared by its writer and its decoder. Fields are
// little-endian whatever the host, and nothing assumes alignment.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace Fwk::RingTrace {

using Bytes = std::span<std::uint8_t>;
using ConstBytes = std::span<const std::uint8_t>;

template <class U>
void storeLe(Bytes field, U value) noexcept {
   for (std::size_t i = 0; i < sizeof(U); ++i) {
      field[i] = static_cast<std::uint8_t>(value >> (8 * i));
   }
}

template <class U>
U loadLe(ConstBytes field) noexcept {
   U value = 0;
   for (std::size_t i = 0; i < sizeof(U); ++i) {
      value |= static_cast<U>(static_cast<U>(field[i]) << (8 * i));
   }
   return value;
}

}  // namespace Fwk::RingTrace
