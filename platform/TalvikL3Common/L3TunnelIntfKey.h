// The key of a tunnel interface: an opaque 64-bit value. Keys order as unsigned numbers and print
// in decimal.
#pragma once

#include <compare>
#include <cstdint>
#include <functional>
#include <ostream>
#include <string_view>

namespace TalvikL3Common {

class L3TunnelIntfKey {
  public:
   static constexpr std::string_view kTypeName = "TalvikL3Common::L3TunnelIntfKey";

   constexpr L3TunnelIntfKey() noexcept = default;
   constexpr explicit L3TunnelIntfKey(std::uint64_t value) noexcept : value_(value) {}

   constexpr std::uint64_t value() const noexcept { return value_; }
   constexpr auto operator<=>(const L3TunnelIntfKey&) const noexcept = default;

   // The type's equality as the framework calls it (collections' change notifications).
   static bool isEq(const void* a, const void* b) noexcept {
      return static_cast<const L3TunnelIntfKey*>(a)->value_ ==
             static_cast<const L3TunnelIntfKey*>(b)->value_;
   }

  private:
   std::uint64_t value_ = 0;
};

inline std::ostream& operator<<(std::ostream& os, const L3TunnelIntfKey& key) {
   return os << key.value();
}

}  // namespace TalvikL3Common

template <>
struct std::hash<TalvikL3Common::L3TunnelIntfKey> {
   std::size_t operator()(const TalvikL3Common::L3TunnelIntfKey& key) const noexcept {
      // Spread sequential keys over the buckets.
      std::uint64_t x = key.value() * 0x9e3779b97f4a7c15ULL;
      return static_cast<std::size_t>(x ^ (x >> 32));
   }
};
