// Test doubles for the engine's surroundings: a fake switch chip whose rows survive table
// instances (as a chip survives an agent restart), the table's Util over it that records every
// call in order and holds write acknowledgements until a test delivers them, and profile-table
// entry handles that a test moves through states and indices.
#pragma once

#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "TalvikL3Decap/IngL3IifDecapTable.h"

namespace Test {

using TalvikL3Decap::IngL3IifTable;
using TalvikL3Decap::L3TunnelIntfKey;
using Entry = IngL3IifTable::Entry;

// One hardware row: what the chip stores of an entry (the profile's index, not its handle).
struct Row {
   bool valid = false;  // false: an empty row was written
   std::uint8_t profileIndex = 0;
   bool ipv4UcEnable = false;
   bool ipv6UcEnable = false;
   bool trustDscp = false;
   std::uint32_t vrf = 0;

   static Row of(const std::optional<Entry>& entry);
   Entry entry() const;
   bool matches(const Entry& entry) const;
   bool operator==(const Row&) const = default;
};

// The chip: rows by index and counters of hardware operations.
struct FakeChip {
   std::map<Asic::Index, Row> rows;
   std::size_t writes = 0;
   std::size_t deletes = 0;
};

class FakeChipUtil : public IngL3IifTable::Util {
  public:
   FakeChipUtil(std::shared_ptr<FakeChip> chip, std::uint32_t size);

   std::uint32_t minIndex() const override { return 0; }
   std::uint32_t maxIndex() const override { return size_ - 1; }
   void hwTableEntryIs(IngL3IifTable* swTable, Asic::Index key,
                       const std::optional<Entry>& entry) const override;
   void hwTableEntryDel(IngL3IifTable* swTable, Asic::Index key) const override;
   void updateHwIndexRefCountTracker(Asic::HwTable* hwTable, Asic::Index key,
                                     Asic::IndexUserTracker::OpType op) const override;
   bool compareHwEntries(const IngL3IifTable* swTable, Asic::Index key,
                         const Entry& resolvedEntry) const override;
   std::optional<Entry> hwTableEntry(const IngL3IifTable* swTable,
                                     Asic::Index key) const override;
   void syncEntries(const Asic::HwTable* hwTable,
                    const Fwk::Ptr<Asic::SwTable>& table) const override;
   Asic::Index dependentFieldValueToHwIndex(Asic::Index value) const override;

   // Every call, in order: "write 3 {row}", "write 3 empty", "delete 3", "tracker 3 acquire",
   // "compare 3", "sync".
   const std::vector<std::string>& calls() const noexcept { return calls_; }
   std::vector<std::string> callsMatching(const std::string& prefix) const;
   void clearCalls() noexcept { calls_.clear(); }

   // Acknowledgements of writes not yet delivered, oldest first (by key).
   std::size_t pendingAcks() const noexcept { return acks_.size(); }
   // Delivers the oldest (or the n-th oldest) acknowledgement through the table's write-response
   // state machine. Returns whether a handle took it.
   bool ackNext(IngL3IifTable& table, std::size_t n = 0);
   // Delivers every pending acknowledgement in order, including those that the deliveries cause.
   std::size_t ackAll(IngL3IifTable& table);

   // A mapping applied by dependentFieldValueToHwIndex (e.g. 3 -> 259).
   void indexMappingIs(Asic::Index from, Asic::Index to) { mapping_[from] = to; }

   FakeChip& chip() const noexcept { return *chip_; }

  private:
   std::shared_ptr<FakeChip> chip_;
   std::uint32_t size_;
   std::map<Asic::Index, Asic::Index> mapping_;
   mutable std::vector<std::string> calls_;
   mutable std::deque<L3TunnelIntfKey> acks_;
};

// An entry handle of the profile table: a test sets its state and index; it records the index
// suggestions it receives.
class ProfileHandle : public Asic::SwTableBase::EntryHandle {
  public:
   static constexpr std::string_view kTypeName = "Test::ProfileHandle";
   const Fwk::TypeDescriptor& typeData() const override { return Fwk::typeOf<ProfileHandle>(); }

   // A handle in `state` with `index`, named `name` in the directory (empty: unnamed).
   static Fwk::Ptr<ProfileHandle> make(Asic::SwTableBase::EntryState state, Asic::Index index,
                                       const std::string& name = {});
   void handleIndexSuggestions(const Asic::IndexSet& suggestions) const override;
   mutable std::vector<Asic::IndexSet> suggestions;
};

}  // namespace Test
