// The tables the tests run over, each as a kind: its table type, how a test makes a table, a key
// and a value, and its trace lines with keys shown as their number. The lifecycle and restart
// scenarios run over every kind (TableKinds).
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "fakechip/DecapChip.h"

namespace Test {

using FakeChip::ProfileHandle;

// The decap table of the library.
struct DecapKind {
   using Table = TalvikL3Decap::IngL3IifTable;
   static Fwk::Ptr<Table> make() { return TalvikL3Decap::ingL3IifTableFactory(); }
   static Table::Key key(std::uint64_t n) { return Table::Key(n); }
   // A value needing `profile` (null: nothing; `field` is then written as given) with a VRF.
   static Table::Entry value(const Fwk::Ptr<ProfileHandle>& profile, std::uint32_t vrf,
                             std::uint8_t field = 0) {
      return Table::Entry(profile, field, true, false, false, vrf);
   }
   static unsigned field(const Table::Entry& e) { return e.l3IifProfileIndex; }
   static std::uint32_t vrf(const Table::Entry& e) { return e.vrf; }
   static std::string plainKeys(std::string line) { return line; }
};

using TableKinds = ::testing::Types<DecapKind>;

// Names the typed tests' instances after their kind: "Decap", "Wide".
struct KindNames {
   template <class Kind>
   static std::string GetName(int /*index*/) {
      return std::is_same_v<Kind, DecapKind> ? "Decap" : "Wide";
   }
};

}  // namespace Test
