// Fuzzes the entry's text-form parser: any input either parses into an entry that prints back to
// text that parses to an equal entry, or fails with one of the parser's own errors.
#include <cstddef>
#include <cstdint>
#include <string>

#include "Fwk/Directory.h"
#include "Fwk/Errors.h"
#include "TalvikL3Decap/IngL3IifDecapTable.h"

namespace {

using TalvikL3Decap::IngL3IifTable;

// A named profile handle, so that texts can refer to one.
class NamedHandle : public Asic::SwTableBase::EntryHandle {};

const bool named = [] {
   static Fwk::Ptr<NamedHandle> handle(new NamedHandle());
   Fwk::Directory::objectIs("profile:1", handle.get());
   return true;
}();

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
   const std::string text(reinterpret_cast<const char*>(data), size);
   IngL3IifTable::Entry entry;
   try {
      entry = TalvikL3Decap::strepToValue<IngL3IifTable::Entry>(text);
   } catch (const Fwk::ParseError&) {
      return 0;
   } catch (const Fwk::ConversionError&) {
      return 0;
   } catch (const Fwk::AttributeDeserialisationError&) {
      return 0;
   }
   const auto again = TalvikL3Decap::strepToValue<IngL3IifTable::Entry>(toText(entry));
   if (!(again == entry) || again.l3IifProfileIndex != entry.l3IifProfileIndex) {
      __builtin_trap();  // printing and parsing disagree
   }
   return 0;
}
