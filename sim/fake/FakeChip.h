// The in-process fake of the switch chip that the tests and the benchmarks run tables over. A chip
// is a flat array of rows that outlives table instances, as a chip outlives an agent restart; its
// Util, for any table built on Asic::TableModel, does what a chip plug-in does:
//
//   - writes and deletes rows, compares them and reads them back (reporting each row read back
//     to the index-user tracker), and keeps the tracker;
//   - queues one acknowledgement, by key, for each row written, and delivers them when its user
//     says, through the table's write-response state machine (ackNext, ackAll);
//   - publishes written indices in handles when asked (publishHwIndexInHandleIs);
//   - maps dependent-field values to indices as a test tells it (indexMappingIs);
//   - and, when built to, logs every call: "write 3 {p7 vrf100}", "write 3 empty", "delete 3",
//     "tracker 3 acquire", "compare 3", "sync". The benchmarks build it without the log.
//
// A table's rows look as its FakeChip::RowForm says: what the chip stores of an entry (never the
// handle of the entry it needs) and the row's text in the log. DecapChip.h gives the decap table's.
#pragma once

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Asic/HwTable.h"
#include "Asic/SwTableBase.h"
#include "Fwk/Directory.h"

namespace FakeChip {

// Specialised per table type:
//   struct Row { bool valid = false; ...; bool operator==(const Row&) const = default; };
//   static Row of(const Entry& entry);           // valid
//   static Entry entryOf(const Row& row);        // the entry a valid row reads back as
//   static std::string text(const Row& row);     // its text in the log: "{p7 vrf100}"
template <class Table>
struct RowForm;

template <class Table>
struct Chip {
   using Row = typename RowForm<Table>::Row;

   explicit Chip(std::uint32_t size) : rows(size) {}
   std::size_t validRows() const {
      return static_cast<std::size_t>(
          std::count_if(rows.begin(), rows.end(), [](const Row& r) { return r.valid; }));
   }
   // The row's text in the log, "none" for no row.
   std::string rowText(Asic::Index index) const {
      return index < rows.size() && rows[index].valid ? RowForm<Table>::text(rows[index])
                                                      : std::string("none");
   }

   std::vector<Row> rows;  // an invalid row: none, or emptied
   std::uint64_t writes = 0;
   std::uint64_t deletes = 0;
};

template <class Table>
class Util : public Table::Util {
 public:
   using Entry = typename Table::Entry;
   using Key = typename Table::Key;
   using Form = RowForm<Table>;

   enum class Log : bool { off, calls };

   Util(std::shared_ptr<Chip<Table>> chip, Log log)
       : Table::Util("FakeChipUtil"), chip_(std::move(chip)), log_(log == Log::calls) {
      acks_.reserve(16);
   }

   std::uint32_t minIndex() const override { return 0; }
   std::uint32_t maxIndex() const override {
      return static_cast<std::uint32_t>(chip_->rows.size() - 1);
   }
   void hwTableEntryIs(Table* table, Asic::Index index,
                       const std::optional<Entry>& entry) const override {
      auto& row = chip_->rows.at(index);
      row = entry ? Form::of(*entry) : typename Form::Row{};
      ++chip_->writes;
      if (log_) {
         logCall("write", index, row.valid ? Form::text(row) : "empty");
      }
      // The chip answers by key; a plug-in learns the key of a row from the allocator.
      if (const auto key = table->swKeyFromHwIndex(index)) {
         acks_.push_back(*key);
      }
   }
   void hwTableEntryDel(Table* /*table*/, Asic::Index index) const override {
      chip_->rows.at(index) = typename Form::Row{};
      ++chip_->deletes;
      if (log_) {
         logCall("delete", index);
      }
   }
   void updateHwIndexRefCountTracker(Asic::HwTable* hwTable, Asic::Index index,
                                     Asic::IndexUserTracker::OpType op) const override {
      if (hwTable != nullptr && hwTable->indexUserTracker() != nullptr) {
         hwTable->indexUserTracker()->update(index, op);
      }
      if (log_) {
         logCall("tracker", index, Asic::IndexUserTracker::opTypeName(op));
      }
   }
   bool compareHwEntries(const Table* /*table*/, Asic::Index index,
                         const Entry& entry) const override {
      if (log_) {
         logCall("compare", index);
      }
      return index < chip_->rows.size() && chip_->rows[index] == Form::of(entry);
   }
   std::optional<Entry> hwTableEntry(const Table* /*table*/, Asic::Index index) const override {
      const auto& row = chip_->rows.at(index);
      return row.valid ? std::optional<Entry>(Form::entryOf(row)) : std::nullopt;
   }
   // Reads every valid row back; each counts one user on the index-user tracker, as before the
   // restart.
   void syncEntries(const Asic::HwTable* hwTable,
                    const Fwk::Ptr<Asic::SwTable>& table) const override {
      if (log_) {
         calls_.emplace_back("sync");
      }
      auto& own = static_cast<Table&>(*table);
      for (std::uint32_t i = 0; i < chip_->rows.size(); ++i) {
         if (!chip_->rows[i].valid) {
            continue;
         }
         own.syncedEntryIs(i, Form::entryOf(chip_->rows[i]));
         if (hwTable != nullptr && hwTable->indexUserTracker() != nullptr) {
            hwTable->indexUserTracker()->recoveredIndexIs(i);
         }
      }
   }
   Asic::Index dependentFieldValueToHwIndex(Asic::Index value) const override {
      const auto it = mapping_.find(value);
      return it == mapping_.end() ? value : it->second;
   }

   // --- the log ---
   const std::vector<std::string>& calls() const noexcept { return calls_; }
   // The calls beginning with `prefix` ("write", "tracker 3"), in order.
   std::vector<std::string> callsMatching(const std::string& prefix) const {
      std::vector<std::string> out;
      std::copy_if(calls_.begin(), calls_.end(), std::back_inserter(out),
                   [&](const std::string& c) { return c.starts_with(prefix); });
      return out;
   }
   void clearCalls() noexcept { calls_.clear(); }

   // --- acknowledgements of writes not yet delivered, oldest first ---
   std::size_t pendingAcks() const noexcept { return acks_.size(); }
   // Delivers the oldest (or the n-th oldest) one. Returns whether a handle took it.
   bool ackNext(Table& table, std::size_t n = 0) {
      if (n >= acks_.size()) {
         return false;
      }
      const Key key = acks_[n];
      acks_.erase(acks_.begin() + static_cast<std::ptrdiff_t>(n));
      return acknowledge(table, key);
   }
   // Delivers every one in order, those the deliveries cause included; returns how many a handle
   // took. A table without write-response state machine (before the end of its initialisation)
   // drops them, as the platform does.
   std::size_t ackAll(Table& table) {
      std::size_t taken = 0;
      for (std::size_t i = 0; i < acks_.size(); ++i) {
         taken += acknowledge(table, acks_[i]) ? 1 : 0;
      }
      acks_.clear();
      return taken;
   }

   // dependentFieldValueToHwIndex maps `from` to `to` from now on.
   void indexMappingIs(Asic::Index from, Asic::Index to) { mapping_[from] = to; }
   Chip<Table>& chip() const noexcept { return *chip_; }

 private:
   static bool acknowledge(Table& table, const Key& key) {
      const auto& sm = table.writeResponseSm();
      return sm && sm->writeAcknowledged(&key);
   }
   void logCall(const char* verb, Asic::Index index, const std::string& what = {}) const {
      calls_.push_back(std::string(verb) + " " + std::to_string(index) +
                       (what.empty() ? "" : " " + what));
   }

   std::shared_ptr<Chip<Table>> chip_;
   bool log_;
   std::map<Asic::Index, Asic::Index> mapping_;
   mutable std::vector<std::string> calls_;
   mutable std::vector<Key> acks_;
};

// An entry handle of the table that entries need (the profile table): a test moves it through
// states and indices; it records the index suggestions it receives.
class ProfileHandle : public Asic::SwTableBase::EntryHandle {
 public:
   static constexpr std::string_view kTypeName = "FakeChip::ProfileHandle";
   const Fwk::TypeDescriptor& typeData() const override { return Fwk::typeOf<ProfileHandle>(); }

   // A handle in `state` with `index`, named `name` in the directory (empty: unnamed).
   static Fwk::Ptr<ProfileHandle> make(Asic::SwTableBase::EntryState state, Asic::Index index,
                                       const std::string& name = {}) {
      Fwk::Ptr<ProfileHandle> h(new ProfileHandle());
      h->hwIndexIs(index);
      h->entryStateIs(state);
      if (!name.empty()) {
         Fwk::Directory::objectIs(name, h.get());
      }
      return h;
   }
   void handleIndexSuggestions(const Asic::IndexSet& received) const override {
      suggestions.push_back(received);
   }
   mutable std::vector<Asic::IndexSet> suggestions;
};

}  // namespace FakeChip
