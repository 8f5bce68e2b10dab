// The utility object through which the engine reaches the chip for one table: the operations a
// chip-specific plug-in implements for the table's rows, and the three that need no chip
// knowledge. A table's own Util derives from TableUtil<Table>; a plug-in derives from that.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "Asic/HwTable.h"
#include "Asic/SwTable.h"
#include "AsicSwTable/TableTraits.h"

namespace Asic {

template <class Table>
class TableUtil : public SwTable::Util {
 public:
   using Entry = typename TableTraits<Table>::Entry;

   // Every operation runs on the table's owning thread, inside the engine operation that needs it;
   // none may call back into the table's client operations. Rows, acknowledgements and counters a
   // Util keeps change in const operations, so they are `mutable`.
   //
   // Lowest and highest hardware index of the table.
   virtual std::uint32_t minIndex() const = 0;
   virtual std::uint32_t maxIndex() const = 0;
   // The hardware index a dependent-field value designates; by default the value itself.
   virtual Index dependentFieldValueToHwIndex(Index dependentField) const { return dependentField; }
   // Writes the row at `key` (an empty entry writes an empty row). The hardware's answer comes
   // back later through the table's write-response state machine.
   virtual void hwTableEntryIs(Table* swTable, Index key,
                               const std::optional<Entry>& entry) const = 0;
   // Deletes the row at `key`.
   virtual void hwTableEntryDel(Table* swTable, Index key) const = 0;
   // Reports a change of use of the index to the hardware table's index-user tracker.
   virtual void updateHwIndexRefCountTracker(HwTable* hwTable, Index key,
                                             IndexUserTracker::OpType updateOperation) const = 0;
   // True when the row hardware holds at `key` (as read back) matches `resolvedEntry`.
   virtual bool compareHwEntries(const Table* swTable, Index key,
                                 const Entry& resolvedEntry) const = 0;
   // The row hardware holds at `key` now, empty for a free row. The engine never calls it; tools
   // use it to show and plan.
   virtual std::optional<Entry> hwTableEntry(const Table* swTable, Index key) const = 0;
   // Reads every valid row back and records each with the table's syncedEntryIs.
   virtual void syncEntries(const HwTable* hwTable, const Fwk::Ptr<SwTable>& table) const = 0;
   // The index a dependent field of another table puts in to refer to `hdl`; by default the
   // handle's own.
   virtual Index hwIndexForDependentField(
       const Fwk::Ptr<const SwTableBase::EntryHandle>& hdl) const {
      return SwTableBase::getHwEntryIndex(hdl);
   }

   // The handle's own hardware index.
   Index getHwIndex(const Fwk::Ptr<const SwTableBase::EntryHandle>& hdl) const {
      return SwTableBase::getHwEntryIndex(hdl);
   }

 protected:
   explicit TableUtil(const std::string& name) : SwTable::Util(name) {}
   ~TableUtil() override { underDestructionIs(); }
};

}  // namespace Asic
