#include "TalvikL3Decap/IngL3IifDecapEntry.h"

#include <sstream>
#include <stdexcept>
#include <utility>

#include "Fwk/Errors.h"

namespace TalvikL3Decap {

IngL3IifEntry::IngL3IifEntry(Fwk::Ptr<const Asic::SwTableBase::EntryHandle> handle,
                             std::uint8_t profileIndex, bool ipv4, bool ipv6, bool trust,
                             std::uint32_t vrfId) noexcept
    : EntryBase(sizeof(IngL3IifEntry)),
      l3IifProfileIndexHandle(std::move(handle)),
      l3IifProfileIndex(profileIndex),
      ipv4UcEnable(ipv4),
      ipv6UcEnable(ipv6),
      trustDscp(trust),
      vrf(vrfId) {}

IngL3IifEntry::IngL3IifEntry(IngL3IifEntry&& o) noexcept
    : EntryBase(o),
      l3IifProfileIndexHandle(std::move(o.l3IifProfileIndexHandle)),
      l3IifProfileIndex(o.l3IifProfileIndex),
      ipv4UcEnable(o.ipv4UcEnable),
      ipv6UcEnable(o.ipv6UcEnable),
      trustDscp(o.trustDscp),
      vrf(o.vrf) {}

IngL3IifEntry& IngL3IifEntry::operator=(IngL3IifEntry&& o) noexcept {
   l3IifProfileIndexHandle = std::move(o.l3IifProfileIndexHandle);
   l3IifProfileIndex = o.l3IifProfileIndex;
   ipv4UcEnable = o.ipv4UcEnable;
   ipv6UcEnable = o.ipv6UcEnable;
   trustDscp = o.trustDscp;
   vrf = o.vrf;
   return *this;
}

bool IngL3IifEntry::isEq(const void* a, const void* b) noexcept {
   if (a == b) {
      return true;
   }
   const auto& x = *static_cast<const IngL3IifEntry*>(a);
   const auto& y = *static_cast<const IngL3IifEntry*>(b);
   return x.l3IifProfileIndexHandle == y.l3IifProfileIndexHandle &&
          x.ipv4UcEnable == y.ipv4UcEnable && x.ipv6UcEnable == y.ipv6UcEnable &&
          x.trustDscp == y.trustDscp && x.vrf == y.vrf;
}

std::strong_ordering IngL3IifEntry::operator<=>(const IngL3IifEntry& o) const noexcept {
   if (this == &o) {
      return std::strong_ordering::equal;
   }
   const auto address = [](const IngL3IifEntry& e) {
      return reinterpret_cast<std::uintptr_t>(e.l3IifProfileIndexHandle.get());
   };
   const auto byte = [](bool b) { return static_cast<std::uint8_t>(b); };
   if (auto c = address(*this) <=> address(o); std::is_neq(c)) {
      return c;
   }
   if (auto c = byte(ipv4UcEnable) <=> byte(o.ipv4UcEnable); std::is_neq(c)) {
      return c;
   }
   if (auto c = byte(ipv6UcEnable) <=> byte(o.ipv6UcEnable); std::is_neq(c)) {
      return c;
   }
   if (auto c = byte(trustDscp) <=> byte(o.trustDscp); std::is_neq(c)) {
      return c;
   }
   return vrf <=> o.vrf;
}

IngL3IifEntry::IngL3IifEntry(Fwk::CharRange& text) : IngL3IifEntry() {
   text.recordOpen(kTypeName, "l3IifProfileIndexHandle");
   try {
      Fwk::Ptr<Fwk::Entity> object = text.objectRef();
      if (object) {
         auto handle = Fwk::ptr_cast<const Asic::SwTableBase::EntryHandle>(object);
         if (!handle) {
            throw Fwk::ConversionError("'" + object->entityText() + "' is not an entry handle");
         }
         l3IifProfileIndexHandle = std::move(handle);
      }
   } catch (const std::range_error& e) {
      throw Fwk::AttributeDeserialisationError("l3IifProfileIndexHandle", e.what());
   } catch (const Fwk::ParseError& e) {
      throw Fwk::AttributeDeserialisationError("l3IifProfileIndexHandle", e.what());
   }
   text.attribute("l3IifProfileIndex");
   l3IifProfileIndex = text.unsignedAs<std::uint8_t>();
   text.attribute("ipv4UcEnable");
   ipv4UcEnable = text.boolean();
   text.attribute("ipv6UcEnable");
   ipv6UcEnable = text.boolean();
   text.attribute("trustDscp");
   trustDscp = text.boolean();
   text.attribute("vrf");
   vrf = text.unsignedAs<std::uint32_t>();
   text.recordClose();
}

std::string toText(const IngL3IifEntry& e) {
   std::ostringstream os;
   os << IngL3IifEntry::kTypeName
      << "{l3IifProfileIndexHandle=" << Fwk::objectRefText(e.l3IifProfileIndexHandle.get())
      << ", l3IifProfileIndex=" << static_cast<unsigned>(e.l3IifProfileIndex)
      << ", ipv4UcEnable=" << (e.ipv4UcEnable ? "true" : "false")
      << ", ipv6UcEnable=" << (e.ipv6UcEnable ? "true" : "false")
      << ", trustDscp=" << (e.trustDscp ? "true" : "false") << ", vrf=" << e.vrf << "}";
   return os.str();
}

std::ostream& operator<<(std::ostream& os, const IngL3IifEntry& entry) {
   return os << toText(entry);
}

template <>
IngL3IifEntry strepToValue<IngL3IifEntry>(const std::string& text) {
   Fwk::CharRange range(text);
   IngL3IifEntry entry(range);
   if (!range.atEnd()) {
      range.fail("the end of the text");
   }
   return entry;
}

}  // namespace TalvikL3Decap
