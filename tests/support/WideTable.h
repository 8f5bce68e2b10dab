// A second table driven by the same engine, in the tests only, to show and test what adding a table
// takes (docs/ADDING_A_TABLE.md): a key wider than 64 bits, an entry of another
// shape with a dependent field of another width, its traits, its class on the generic table model,
// its Util, and its rows on the fake chip.
#pragma once

#include <cstdint>
#include <functional>
#include <ostream>
#include <string>
#include <string_view>

#include "AsicSwTable/SwTableAccessor.h"
#include "AsicSwTable/TableModel.h"
#include "AsicSwTable/TableUtil.h"
#include "sim/fake/FakeChip.h"

namespace Test {

// 16 bytes: keys of one site share their first eight bytes, so only the whole key tells them
// apart.
struct WideKey {
   static constexpr std::string_view kTypeName = "Test::WideKey";
   std::uint64_t site = 0;
   std::uint64_t tunnel = 0;
   bool operator==(const WideKey&) const = default;
   friend std::ostream& operator<<(std::ostream& os, const WideKey& k) {
      return os << k.site << "/" << k.tunnel;
   }
};

// A value that needs a next-hop entry, whose index goes into a 16-bit field, and a VRF.
struct WideEntry {
   static constexpr std::string_view kTypeName = "Test::WideTable::Entry";
   Fwk::Ptr<const Asic::SwTableBase::EntryHandle> nextHop;
   std::uint16_t nextHopIndex = 0;
   std::uint32_t vrf = 0;
   // The dependent field is derived, not compared.
   bool operator==(const WideEntry& o) const noexcept {
      return nextHop == o.nextHop && vrf == o.vrf;
   }
   friend std::ostream& operator<<(std::ostream& os, const WideEntry& e);
};

class WideTable;

}  // namespace Test

template <>
struct std::hash<Test::WideKey> {
   std::size_t operator()(const Test::WideKey& k) const noexcept {
      return std::hash<std::uint64_t>()(k.site * 0x9e3779b97f4a7c15ULL ^ k.tunnel);
   }
};

template <>
struct Asic::TableTraits<Test::WideTable>
    : Asic::KeyTraits<Test::WideKey>,
      Asic::NeededEntryField<&Test::WideEntry::nextHop, &Test::WideEntry::nextHopIndex> {
   static constexpr std::string_view kEntryHandleTypeName = "Test::WideTable::EntryHandle";
   static constexpr std::string_view kUnresolvedEntryTypeName = "Test::WideTable::UnresolvedEntry";
};

namespace Test {

class WideTable : public Asic::TableModel<WideTable> {
 public:
   static constexpr std::string_view kTypeName = "Test::WideTable";
   static constexpr std::string_view kShortName = "WideTable";

   class Util : public Asic::TableUtil<WideTable> {
    public:
      static constexpr std::string_view kTypeName = "Test::WideTable::Util";
      using TableUtil::TableUtil;
      const Fwk::TypeDescriptor& typeData() const override { return Fwk::typeOf<Util>(); }
   };

   const Fwk::TypeDescriptor& typeData() const override { return Fwk::typeOf<WideTable>(); }
   const Util* util() const noexcept { return static_cast<const Util*>(Asic::SwTable::util()); }
   // An allocator of its own, sized to the table.
   void doInitAllocator();

 protected:
   ~WideTable() override { tearDown(); }
};

}  // namespace Test

// What the fake chip stores of a wide entry, and shows as "{p7 vrf100}".
template <>
struct FakeChip::RowForm<Test::WideTable> {
   struct Row {
      bool valid = false;
      std::uint16_t nextHopIndex = 0;
      std::uint32_t vrf = 0;
      bool operator==(const Row&) const = default;
   };
   static Row of(const Test::WideEntry& e) noexcept { return Row{true, e.nextHopIndex, e.vrf}; }
   static Test::WideEntry entryOf(const Row& r) { return {nullptr, r.nextHopIndex, r.vrf}; }
   static std::string text(const Row& r) {
      return "{p" + std::to_string(r.nextHopIndex) + " vrf" + std::to_string(r.vrf) + "}";
   }
};

extern template class Asic::TableModel<Test::WideTable>;
extern template class Asic::TableEntryHandle<Test::WideTable>;
extern template class Asic::TableUnresolvedEntry<Test::WideTable>;
extern template class Asic::SwTable::Accessor<Test::WideTable>;
extern template class Asic::SwTable::EntryIteratorConst<Test::WideTable>;
