// The tables the tests run over, each as a kind: its table type, how a test makes a table, a key
// and a value, and its trace lines with keys shown as their number. The lifecycle and restart
// scenarios run over every kind (TableKinds).
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>

#include "sim/fake/DecapChip.h"
#include "support/WideTable.h"

namespace Test {

using FakeChip::ProfileHandle;

// The decap table of the library.
struct DecapKind {
   using Table = TalvikL3Decap::IngL3IifTable;
   static Fwk::Ptr<Table> make() { return TalvikL3Decap::ingL3IifTableFactory(); }
   static Table::Key key(std::uint64_t n) { return Table::Key(n); }
   static std::uint64_t number(const Table::Key& key) { return key.value(); }
   // A value needing `profile` (null: nothing; `field` is then written as given) with a VRF.
   static Table::Entry value(const Fwk::Ptr<ProfileHandle>& profile, std::uint32_t vrf,
                             std::uint8_t field = 0) {
      return Table::Entry(profile, field, false, false, false, vrf);
   }
   static unsigned field(const Table::Entry& e) { return e.l3IifProfileIndex; }
   // The dependent field's type, as the checked narrowing names it, and its largest value.
   static constexpr std::string_view kFieldType = "unsigned char";
   static constexpr Asic::Index kFieldMax = 255;
   static std::uint32_t vrf(const Table::Entry& e) { return e.vrf; }
   static std::string plainKeys(std::string line) { return line; }
};

// The tests' own table with a 16-byte key (WideTable.h): every key of the tests has one site, so
// that all share their first eight bytes.
struct WideKind {
   using Table = WideTable;
   static constexpr std::uint64_t kSite = 7;
   static Fwk::Ptr<Table> make() { return Fwk::make<WideTable>(); }
   static WideKey key(std::uint64_t n) { return WideKey{kSite, n}; }
   static std::uint64_t number(const WideKey& key) { return key.tunnel; }
   static WideEntry value(const Fwk::Ptr<ProfileHandle>& profile, std::uint32_t vrf,
                          std::uint16_t field = 0) {
      return WideEntry{profile, field, vrf};
   }
   static unsigned field(const WideEntry& e) { return e.nextHopIndex; }
   static constexpr std::string_view kFieldType = "unsigned short";
   static constexpr Asic::Index kFieldMax = 65535;
   static std::uint32_t vrf(const WideEntry& e) { return e.vrf; }
   // A key "7/12" shown as "12", so that one expected line serves both kinds.
   static std::string plainKeys(std::string line);
};

using TableKinds = ::testing::Types<DecapKind, WideKind>;

// Names the typed tests' instances after their kind: "Decap", "Wide".
struct KindNames {
   template <class Kind>
   static std::string GetName(int /*index*/) {
      return std::is_same_v<Kind, DecapKind> ? "Decap" : "Wide";
   }
};

}  // namespace Test
