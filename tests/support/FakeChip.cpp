#include "support/FakeChip.h"

#include <sstream>

#include "Fwk/Directory.h"

namespace Test {

Row Row::of(const std::optional<Entry>& entry) {
   if (!entry) {
      return Row{};
   }
   return Row{true, entry->l3IifProfileIndex, entry->ipv4UcEnable, entry->ipv6UcEnable,
              entry->trustDscp, entry->vrf};
}

Entry Row::entry() const {
   return Entry(nullptr, profileIndex, ipv4UcEnable, ipv6UcEnable, trustDscp, vrf);
}

bool Row::matches(const Entry& e) const { return valid && Row::of(e) == *this; }

namespace {
std::string text(const Row& row) {
   if (!row.valid) {
      return "empty";
   }
   std::ostringstream os;
   os << "{p" << unsigned(row.profileIndex) << (row.ipv4UcEnable ? " v4" : "")
      << (row.ipv6UcEnable ? " v6" : "") << (row.trustDscp ? " dscp" : "") << " vrf" << row.vrf
      << "}";
   return os.str();
}
}  // namespace

FakeChipUtil::FakeChipUtil(std::shared_ptr<FakeChip> chip, std::uint32_t size)
    : Util("FakeChipUtil"), chip_(std::move(chip)), size_(size) {}

void FakeChipUtil::hwTableEntryIs(IngL3IifTable* swTable, Asic::Index key,
                                  const std::optional<Entry>& entry) const {
   const Row row = Row::of(entry);
   chip_->rows[key] = row;
   ++chip_->writes;
   calls_.push_back("write " + std::to_string(key) + " " + text(row));
   if (const auto owner = swTable->swKeyFromHwIndex(key)) {
      acks_.push_back(*owner);
   }
}

void FakeChipUtil::hwTableEntryDel(IngL3IifTable* /*swTable*/, Asic::Index key) const {
   chip_->rows.erase(key);
   ++chip_->deletes;
   calls_.push_back("delete " + std::to_string(key));
}

void FakeChipUtil::updateHwIndexRefCountTracker(Asic::HwTable* hwTable, Asic::Index key,
                                                Asic::IndexUserTracker::OpType op) const {
   if (hwTable && hwTable->indexUserTracker()) {
      hwTable->indexUserTracker()->update(key, op);
   }
   calls_.push_back("tracker " + std::to_string(key) + " " +
                    Asic::IndexUserTracker::opTypeName(op));
}

bool FakeChipUtil::compareHwEntries(const IngL3IifTable* /*swTable*/, Asic::Index key,
                                    const Entry& resolvedEntry) const {
   calls_.push_back("compare " + std::to_string(key));
   const auto it = chip_->rows.find(key);
   return it != chip_->rows.end() && it->second.matches(resolvedEntry);
}

std::optional<Entry> FakeChipUtil::hwTableEntry(const IngL3IifTable* /*swTable*/,
                                                Asic::Index key) const {
   const auto it = chip_->rows.find(key);
   if (it == chip_->rows.end() || !it->second.valid) {
      return std::nullopt;
   }
   return it->second.entry();
}

void FakeChipUtil::syncEntries(const Asic::HwTable* /*hwTable*/,
                               const Fwk::Ptr<Asic::SwTable>& table) const {
   calls_.push_back("sync");
   auto& decap = static_cast<IngL3IifTable&>(*table);
   for (const auto& [index, row] : chip_->rows) {
      if (row.valid) {
         decap.syncedEntryIs(index, row.entry());
      }
   }
}

Asic::Index FakeChipUtil::dependentFieldValueToHwIndex(Asic::Index value) const {
   const auto it = mapping_.find(value);
   return it == mapping_.end() ? value : it->second;
}

std::vector<std::string> FakeChipUtil::callsMatching(const std::string& prefix) const {
   std::vector<std::string> out;
   for (const auto& c : calls_) {
      if (c.starts_with(prefix)) {
         out.push_back(c);
      }
   }
   return out;
}

bool FakeChipUtil::ackNext(IngL3IifTable& table, std::size_t n) {
   if (n >= acks_.size()) {
      return false;
   }
   const L3TunnelIntfKey key = acks_[n];
   acks_.erase(acks_.begin() + static_cast<std::ptrdiff_t>(n));
   const auto& sm = table.writeResponseSm();
   return sm && sm->writeAcknowledged(&key);
}

std::size_t FakeChipUtil::ackAll(IngL3IifTable& table) {
   std::size_t delivered = 0;
   while (!acks_.empty()) {
      delivered += ackNext(table) ? 1 : 0;
   }
   return delivered;
}

Fwk::Ptr<ProfileHandle> ProfileHandle::make(Asic::SwTableBase::EntryState state,
                                            Asic::Index index, const std::string& name) {
   Fwk::Ptr<ProfileHandle> h(new ProfileHandle());
   h->hwIndexIs(index);
   h->entryStateIs(state);
   if (!name.empty()) {
      Fwk::Directory::objectIs(name, h.get());
   }
   return h;
}

void ProfileHandle::handleIndexSuggestions(const Asic::IndexSet& s) const {
   suggestions.push_back(s);
}

}  // namespace Test
