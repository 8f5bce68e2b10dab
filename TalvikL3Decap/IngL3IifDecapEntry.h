// The entry record of the ingress L3 IIF decap table (IngL3IifTable::Entry) and its text form.
#pragma once

#include <compare>
#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>

#include "Asic/EntryBase.h"
#include "Asic/SwTableBase.h"
#include "Fwk/Ptr.h"
#include "Fwk/TextForm.h"

namespace TalvikL3Decap {

// A row's value: the profile entry it needs, that entry's hardware index (the dependent field,
// derived by resolution), two enables, trust-DSCP and the VRF. Known to clients as
// IngL3IifTable::Entry.
class IngL3IifEntry : public Asic::EntryBase {
 public:
   static constexpr std::string_view kTypeName = "TalvikL3Decap::IngL3IifTable::Entry";
   static constexpr bool getBlockSizeDefinedByUser = false;
   static constexpr std::uint64_t numDependentFields = 1;

   // The default entry: no profile handle, every field zero or false.
   IngL3IifEntry() noexcept : EntryBase(sizeof(IngL3IifEntry)) {}
   // A value that needs the profile entry `handle`: it waits until the handle has a hardware
   // index, which resolution then puts in l3IifProfileIndex. With a null handle the value needs
   // nothing and `profileIndex` is written as given.
   IngL3IifEntry(Fwk::Ptr<const Asic::SwTableBase::EntryHandle> handle, std::uint8_t profileIndex,
                 bool ipv4UcEnable, bool ipv6UcEnable, bool trustDscp, std::uint32_t vrf) noexcept;
   IngL3IifEntry(const IngL3IifEntry&) = default;
   IngL3IifEntry& operator=(const IngL3IifEntry&) = default;
   IngL3IifEntry(IngL3IifEntry&& o) noexcept;
   IngL3IifEntry& operator=(IngL3IifEntry&& o) noexcept;
   ~IngL3IifEntry() override = default;
   // Parses the text form; see strepToValue for whole strings.
   explicit IngL3IifEntry(Fwk::CharRange& text);

   // Equal when they need the same profile handle (not its index) and have the same flags and
   // VRF: a new index of the same profile alone is not a new value.
   static bool isEq(const void* a, const void* b) noexcept;
   bool operator==(const IngL3IifEntry& o) const noexcept { return isEq(this, &o); }
   // Orders by the profile handle's address, then the flags, then the VRF.
   std::strong_ordering operator<=>(const IngL3IifEntry& o) const noexcept;

   Fwk::Ptr<const Asic::SwTableBase::EntryHandle> l3IifProfileIndexHandle;
   std::uint8_t l3IifProfileIndex = 0;
   bool ipv4UcEnable = false;
   bool ipv6UcEnable = false;
   bool trustDscp = false;
   std::uint32_t vrf = 0;
};

// The entry's text form, TalvikL3Decap::IngL3IifTable::Entry{l3IifProfileIndexHandle=..., ...}
// (Fwk/TextForm.h), which IngL3IifEntry(Fwk::CharRange&) and strepToValue read back.
std::ostream& operator<<(std::ostream& os, const IngL3IifEntry& entry);
std::string toText(const IngL3IifEntry& entry);

// Parses a whole string into a value; fails (Fwk::ParseError) when text remains after it.
template <class T>
T strepToValue(const std::string& text);
template <>
IngL3IifEntry strepToValue<IngL3IifEntry>(const std::string& text);

}  // namespace TalvikL3Decap
