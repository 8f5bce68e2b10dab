// The decap table's rows on the fake chip (FakeChip.h): what the chip stores of an entry is its
// profile index, its flags and its VRF; the log shows them as "{p7 v4 vrf100}" (only the flags
// that are set).
#pragma once

#include <sstream>
#include <string>

#include "TalvikL3Decap/IngL3IifDecapTable.h"
#include "sim/fake/FakeChip.h"

template <>
struct FakeChip::RowForm<TalvikL3Decap::IngL3IifTable> {
   using Entry = TalvikL3Decap::IngL3IifTable::Entry;

   struct Row {
      bool valid = false;
      std::uint8_t profileIndex = 0;
      bool ipv4UcEnable = false;
      bool ipv6UcEnable = false;
      bool trustDscp = false;
      std::uint32_t vrf = 0;
      bool operator==(const Row&) const = default;
   };

   static Row of(const Entry& e) noexcept {
      return Row{true, e.l3IifProfileIndex, e.ipv4UcEnable, e.ipv6UcEnable, e.trustDscp, e.vrf};
   }
   static Entry entryOf(const Row& r) {
      return Entry(nullptr, r.profileIndex, r.ipv4UcEnable, r.ipv6UcEnable, r.trustDscp, r.vrf);
   }
   static std::string text(const Row& r) {
      std::ostringstream os;
      os << "{p" << unsigned(r.profileIndex) << (r.ipv4UcEnable ? " v4" : "")
         << (r.ipv6UcEnable ? " v6" : "") << (r.trustDscp ? " dscp" : "") << " vrf" << r.vrf << "}";
      return os.str();
   }
};

namespace FakeChip {
using DecapChip = Chip<TalvikL3Decap::IngL3IifTable>;
using DecapUtil = Util<TalvikL3Decap::IngL3IifTable>;
}  // namespace FakeChip
