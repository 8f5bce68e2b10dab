// What the benchmarks run the table over: a lean in-process chip whose rows live in a flat
// vector (and survive table instances, as a chip survives an agent restart), the table's Util
// over it, and a ready profile-table entry handle that every entry needs.
//
// The Util does what a chip plug-in does and nothing more: it writes and deletes rows, keeps the
// index-user tracker, compares and reads rows back, publishes written indices in handles (so
// that keys can report them across a restart), and queues one completion per row operation,
// by key, which the benchmark delivers through the table's write-response state machine.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "TalvikL3Decap/IngL3IifDecapTable.h"

namespace Bench {

using TalvikL3Decap::IngL3IifTable;
using TalvikL3Decap::L3TunnelIntfKey;
using Entry = IngL3IifTable::Entry;

// One hardware row: what the chip stores of an entry (the profile's index, not its handle).
struct Row {
   bool valid = false;
   bool ipv4UcEnable = false;
   bool ipv6UcEnable = false;
   bool trustDscp = false;
   std::uint8_t profileIndex = 0;
   std::uint32_t vrf = 0;

   bool operator==(const Row&) const = default;
};

struct Chip {
   explicit Chip(std::uint32_t size) : rows(size) {}
   std::vector<Row> rows;
   std::uint64_t writes = 0;
   std::uint64_t deletes = 0;
   std::size_t validRows() const;
};

Row rowOf(const Entry& entry) noexcept;

class ChipUtil : public IngL3IifTable::Util {
  public:
   ChipUtil(std::shared_ptr<Chip> chip, std::size_t completionCapacity);

   std::uint32_t minIndex() const override { return 0; }
   std::uint32_t maxIndex() const override {
      return static_cast<std::uint32_t>(chip_->rows.size() - 1);
   }
   void hwTableEntryIs(IngL3IifTable* table, Asic::Index index,
                       const std::optional<Entry>& entry) const override;
   void hwTableEntryDel(IngL3IifTable* table, Asic::Index index) const override;
   void updateHwIndexRefCountTracker(Asic::HwTable* hwTable, Asic::Index index,
                                     Asic::IndexUserTracker::OpType op) const override;
   bool compareHwEntries(const IngL3IifTable* table, Asic::Index index,
                         const Entry& entry) const override;
   std::optional<Entry> hwTableEntry(const IngL3IifTable* table,
                                     Asic::Index index) const override;
   void syncEntries(const Asic::HwTable* hwTable,
                    const Fwk::Ptr<Asic::SwTable>& table) const override;

   // Delivers every queued completion, oldest first, through the table's write-response state
   // machine (a table without one drops them, as the platform does before the end of
   // initialisation). Returns how many a handle took.
   std::size_t deliverCompletions(IngL3IifTable& table);
   std::size_t pendingCompletions() const noexcept { return completions_.size(); }

  private:
   void complete(IngL3IifTable* table, Asic::Index index) const;

   std::shared_ptr<Chip> chip_;
   mutable std::vector<L3TunnelIntfKey> completions_;
};

// A profile-table entry handle in a fixed state and index.
class ProfileHandle : public Asic::SwTableBase::EntryHandle {
  public:
   static constexpr std::string_view kTypeName = "Bench::ProfileHandle";
   const Fwk::TypeDescriptor& typeData() const override { return Fwk::typeOf<ProfileHandle>(); }
   static Fwk::Ptr<ProfileHandle> make(Asic::SwTableBase::EntryState state, Asic::Index index);
};

// One table instance over a chip, set up as the platform sets it up.
struct Instance {
   // Normal operation: configuration replay complete and write responses on. Otherwise the
   // instance is a restarted one, in configuration replay.
   Instance(std::shared_ptr<Chip> chip, std::uint32_t size, bool normalOperation);
   // The agent dies: nothing the old instance does on the way out reaches the chip.
   void dieQuietly();
   ~Instance();

   std::shared_ptr<Chip> chip;
   Fwk::Ptr<IngL3IifTable> table;
   Fwk::Ptr<ChipUtil> util;
};

}  // namespace Bench
