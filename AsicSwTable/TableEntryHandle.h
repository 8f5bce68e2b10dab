// The entry handle of a table built on TableModel: what clients and dependent tables hold for one
// key. It carries its key, its table while connected, and the pending-entry queue of values whose
// replacement hardware has not confirmed yet; its hooks forward the platform's events to the
// engine. Made by the table's collection (TableModel::entryHandleIs).
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "Asic/SwTable.h"
#include "AsicSwTable/PendingEntryQueue.h"
#include "AsicSwTable/TableTraits.h"
#include "Fwk/NodePool.h"

namespace Asic {

template <class Table>
class TableEntryHandle final : public SwTable::EntryHandle {
 public:
   using Key = typename TableTraits<Table>::Key;
   using Entry = typename TableTraits<Table>::Entry;
   using Position = typename PendingEntryQueue<Entry>::Position;
   static constexpr std::string_view kTypeName = TableTraits<Table>::kEntryHandleTypeName;

   TableEntryHandle(Key key, Table* table);
   // Handles of one table type, one per key of every table instance, come from one pool
   // (Fwk/NodePool.h), shared by tables on different threads.
   static void* operator new(std::size_t size);
   static void operator delete(void* handle, std::size_t size) noexcept;
   // That pool, for its statistics.
   static const Fwk::SharedNodePool& pool();
   const Fwk::TypeDescriptor& typeData() const override { return Fwk::typeOf<TableEntryHandle>(); }
   // Handles of this table type alive in the process (leak checks): the pool's nodes in use.
   static std::size_t liveHandles() noexcept { return pool().nodesInUse(); }
   // The handle's directory name, else "<table>::EntryHandle(<key>)".
   std::string entityText() const override;

   Key key() const noexcept { return key_; }
   // The handle's table; null once the handle is disconnected (removed, or the table cleaned
   // up). The handle holds a reference to its table while connected.
   Table* swTable() const noexcept { return swTable_.get(); }
   // Publishes the change (with the previous table).
   void swTableIs(Table* table);

   // The engine's clean-up of this handle, as when its last client lets go (lastUserGone).
   void cleanup();

   // --- pending-entry queue: values whose replacement hardware has not confirmed yet ---
   // Appends a value (published by its position).
   void pendingEntryEnq(const Entry& entry);
   // Removes and returns the oldest value (published by its position); the reads give a
   // default Entry when there is none, and so does this, publishing nothing.
   Entry pendingEntryDeq();
   Entry pendingEntryFront() const;
   Entry pendingEntryBack() const;
   Entry pendingEntry(Position position) const;
   bool pendingEntryHas(Position position) const;
   // Empties the queue: at once when nothing observes the handle, else one published removal at a
   // time, oldest first.
   void pendingEntryDelAll();
   std::uint32_t pendingEntrys() const noexcept { return pending_.size(); }
   const PendingEntryQueue<Entry>& pendingQueue() const noexcept { return pending_; }

   // The index other tables' dependent fields put in: the Util's answer, else the handle's own.
   Index hwIndexForDependentField() const override;
   // During the replay, rows a dependent table suggests for this key: kept in the key's index
   // helper and tried against the rows read back.
   void handleIndexSuggestions(const IndexSet& suggestions) const override;

 private:
   ~TableEntryHandle() override;
   void lastUserGone() override;
   void handleEntryState() override;
   void handleResolvedEntryState() override;

   Key key_;
   Fwk::Ptr<Table> swTable_;
   PendingEntryQueue<Entry> pending_;
};

}  // namespace Asic
