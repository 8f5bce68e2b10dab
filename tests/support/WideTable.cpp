#include "support/WideTable.h"

#include "AsicSwTable/SwTableAccessorImpl.h"
#include "AsicSwTable/TableModelImpl.h"

template class Asic::TableModel<Test::WideTable>;
template class Asic::TableEntryHandle<Test::WideTable>;
template class Asic::TableUnresolvedEntry<Test::WideTable>;
template class Asic::SwTable::Accessor<Test::WideTable>;
template class Asic::SwTable::EntryIteratorConst<Test::WideTable>;

namespace Test {

std::ostream& operator<<(std::ostream& os, const WideEntry& e) {
   return os << WideEntry::kTypeName << "{nextHop=" << Fwk::objectRefText(e.nextHop.get())
             << ", nextHopIndex=" << e.nextHopIndex << ", vrf=" << e.vrf << "}";
}

void WideTable::doInitAllocator() {
   Asic::SwTable::Accessor<WideTable>(this).initAllocator<Asic::FirstFreeIndexAllocator>();
   indexAllocator()->initializedIs(true);
}

}  // namespace Test
