#include "TalvikL3Decap/IngL3IifDecapTable.h"

#include <algorithm>
#include <sstream>
#include <utility>

#include "AsicSwTable/SwTableAccessorImpl.h"
#include "Fwk/Directory.h"
#include "Fwk/Errors.h"
#include "Fwk/Singleton.h"

template class Asic::SwTable::Accessor<TalvikL3Decap::IngL3IifTable>;
template class Asic::SwTable::EntryIteratorConst<TalvikL3Decap::IngL3IifTable>;
template void Asic::SwTable::Accessor<TalvikL3Decap::IngL3IifTable>::initAllocator<
    Asic::FirstFreeIndexAllocator>();

namespace TalvikL3Decap {

using Engine = Asic::SwTable::Accessor<IngL3IifTable>;
using ConstEngine = Asic::SwTable::Accessor<const IngL3IifTable>;

namespace {
// Load time: the statistics trace handle, and the chip plug-in through the loader singleton,
// kept until the process exits.
Fwk::Trace::Handle& statisticsHandle() {
   static Fwk::Trace::Handle h("SwTableStat", false);
   return h;
}
const Fwk::Trace::Handle& loadTimeStatisticsHandle = statisticsHandle();
const Fwk::Ptr<IngL3IifTable::UtilLoader> loadTimeUtilLoader = IngL3IifTable::UtilLoader::loaderSingletonIs();

// The remembered member (null: absent), found by `find` only when `remembered` does not know it.
template <class Remembered, class Find>
auto lookUp(Remembered& remembered, const Find& find) {
   if (!remembered.known) {
      remembered = {true, find()};
   }
   return remembered.at;
}

// Never destroyed: a handle may be released while the process exits, after static destructors.
Fwk::SharedNodePool& handlePool() {
   static auto* const pool = new Fwk::SharedNodePool;
   return *pool;
}

const Fwk::TypeDescriptor& pendingPositionType() {
   static const Fwk::TypeDescriptor d(
       "TalvikL3Decap::IngL3IifTable::EntryHandle::Position", sizeof(std::uint32_t),
       [](std::uint64_t bits) { return std::to_string(bits); });
   return d;
}
}  // namespace

const Fwk::Trace::Handle& IngL3IifTable::statisticsTrace() { return statisticsHandle(); }

// ===== Entry =====

IngL3IifTable::Entry::Entry(Fwk::Ptr<const Asic::SwTableBase::EntryHandle> handle,
                            std::uint8_t profileIndex, bool ipv4, bool ipv6, bool trust,
                            std::uint32_t vrfId) noexcept
    : EntryBase(sizeof(Entry)),
      l3IifProfileIndexHandle(std::move(handle)),
      l3IifProfileIndex(profileIndex),
      ipv4UcEnable(ipv4),
      ipv6UcEnable(ipv6),
      trustDscp(trust),
      vrf(vrfId) {}

IngL3IifTable::Entry::Entry(Entry&& o) noexcept
    : EntryBase(o),
      l3IifProfileIndexHandle(std::move(o.l3IifProfileIndexHandle)),
      l3IifProfileIndex(o.l3IifProfileIndex),
      ipv4UcEnable(o.ipv4UcEnable),
      ipv6UcEnable(o.ipv6UcEnable),
      trustDscp(o.trustDscp),
      vrf(o.vrf) {}

IngL3IifTable::Entry& IngL3IifTable::Entry::operator=(Entry&& o) noexcept {
   l3IifProfileIndexHandle = std::move(o.l3IifProfileIndexHandle);
   l3IifProfileIndex = o.l3IifProfileIndex;
   ipv4UcEnable = o.ipv4UcEnable;
   ipv6UcEnable = o.ipv6UcEnable;
   trustDscp = o.trustDscp;
   vrf = o.vrf;
   return *this;
}

bool IngL3IifTable::Entry::isEq(const void* a, const void* b) noexcept {
   if (a == b) {
      return true;
   }
   const auto& x = *static_cast<const Entry*>(a);
   const auto& y = *static_cast<const Entry*>(b);
   return x.l3IifProfileIndexHandle == y.l3IifProfileIndexHandle &&
          x.ipv4UcEnable == y.ipv4UcEnable && x.ipv6UcEnable == y.ipv6UcEnable &&
          x.trustDscp == y.trustDscp && x.vrf == y.vrf;
}

std::strong_ordering IngL3IifTable::Entry::operator<=>(const Entry& o) const noexcept {
   if (this == &o) {
      return std::strong_ordering::equal;
   }
   const auto address = [](const Entry& e) {
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

IngL3IifTable::Entry::Entry(Fwk::CharRange& text) : Entry() {
   text.recordOpen(kTypeName, "l3IifProfileIndexHandle");
   try {
      Fwk::Ptr<Fwk::Entity> object = text.objectRef();
      if (object) {
         auto handle = Fwk::ptr_cast<const Asic::SwTableBase::EntryHandle>(object);
         if (!handle) {
            throw Fwk::ConversionError("'" + object->entityText() +
                                       "' is not an entry handle");
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

std::string toText(const IngL3IifTable::Entry& e) {
   std::ostringstream os;
   os << IngL3IifTable::Entry::kTypeName
      << "{l3IifProfileIndexHandle=" << Fwk::objectRefText(e.l3IifProfileIndexHandle.get())
      << ", l3IifProfileIndex=" << static_cast<unsigned>(e.l3IifProfileIndex)
      << ", ipv4UcEnable=" << (e.ipv4UcEnable ? "true" : "false")
      << ", ipv6UcEnable=" << (e.ipv6UcEnable ? "true" : "false")
      << ", trustDscp=" << (e.trustDscp ? "true" : "false") << ", vrf=" << e.vrf << "}";
   return os.str();
}

std::ostream& operator<<(std::ostream& os, const IngL3IifTable::Entry& entry) {
   return os << toText(entry);
}

template <>
IngL3IifTable::Entry strepToValue<IngL3IifTable::Entry>(const std::string& text) {
   Fwk::CharRange range(text);
   IngL3IifTable::Entry entry(range);
   if (!range.atEnd()) {
      range.fail("the end of the text");
   }
   return entry;
}

// ===== Table: construction, destruction =====

IngL3IifTable::IngL3IifTable()
    : Asic::SwUnknownIndexTable(""),
      resolvedEntry_(ResolvedEntries::allocator_type(&resolvedEntryNodes_)) {
   hwResponseNeededIs(true);
}

IngL3IifTable::~IngL3IifTable() {
   underDestructionIs();
   Engine(this).cleanup();
   writeResponseSmDel();
   unresolvedEntryDelAll();
   entryHandleDelAll();
   // What remains goes without notifications and without processing.
   syncedEntry_.clear();
   resolvedEntry_.clear();
   entryHandle_.clear();
   unresolvedEntry_.clear();
   lookup_ = {};
   writeResponseSm_ = nullptr;
   indexAllocator_ = nullptr;
}

Fwk::Ptr<IngL3IifTable> ingL3IifTableFactory() { return Fwk::make<IngL3IifTable>(); }

Fwk::Ptr<IngL3IifTable::EntryHandle> IngL3IifTable::entryHandleFactory(L3TunnelIntfKey key,
                                                                      IngL3IifTable* table) {
   return Fwk::make<EntryHandle>(key, table);
}

// ===== Collections =====

Fwk::Ptr<IngL3IifTable::UnresolvedEntry> IngL3IifTable::unresolvedEntryIs(L3TunnelIntfKey key) {
   if (const auto it = unresolvedEntry_.find(key); it != unresolvedEntry_.end()) {
      return it->second;
   }
   Fwk::Ptr<UnresolvedEntry> member = unresolvedEntryAdd(key);
   notify("unresolvedEntry", key);
   return member;
}

const Fwk::Ptr<IngL3IifTable::UnresolvedEntry>& IngL3IifTable::unresolvedEntryAdd(
    L3TunnelIntfKey key) {
   Fwk::Ptr<UnresolvedEntry> member = std::move(spareUnresolvedEntry_);
   if (member) {
      member->key_ = key;
   } else {
      member = Fwk::make<UnresolvedEntry>(key, this);
   }
   if (spareUnresolvedNode_.empty()) {
      return unresolvedEntry_.emplace(key, std::move(member)).first->second;
   }
   spareUnresolvedNode_.key() = key;
   spareUnresolvedNode_.mapped() = std::move(member);
   return unresolvedEntry_.insert(std::move(spareUnresolvedNode_)).position->second;
}

Fwk::Ptr<IngL3IifTable::UnresolvedEntry> IngL3IifTable::unresolvedEntryDel(L3TunnelIntfKey key) {
   const auto it = unresolvedEntry_.find(key);
   if (it == unresolvedEntry_.end()) {
      return nullptr;
   }
   auto node = unresolvedEntry_.extract(it);
   Fwk::Ptr<UnresolvedEntry> removed = std::move(node.mapped());
   if (spareUnresolvedNode_.empty()) {
      spareUnresolvedNode_ = std::move(node);
   }
   notify("unresolvedEntry", key);
   return removed;
}

void IngL3IifTable::unresolvedEntryRecycle(Fwk::Ptr<UnresolvedEntry> member) {
   const bool reusable = !spareUnresolvedEntry_ && member->holderCount() == 1 &&
                         !member->uncountedHolder() && !member->publisher().hasObservers() &&
                         member->neededEntryHandleSms() == 0 &&
                         Fwk::Directory::nameOf(member.get()).empty();
   if (reusable) {
      member->entry = Entry();  // its value's references go now, as with a destroyed entry
      spareUnresolvedEntry_ = std::move(member);
   }
}

void IngL3IifTable::unresolvedEntryDelAll() {
   while (!unresolvedEntry_.empty()) {
      unresolvedEntryDel(unresolvedEntry_.begin()->first);
   }
}

Fwk::Ptr<IngL3IifTable::UnresolvedEntry> IngL3IifTable::unresolvedEntry(
    L3TunnelIntfKey key) const {
   const auto it = unresolvedEntry_.find(key);
   return it == unresolvedEntry_.end() ? nullptr : it->second;
}

Fwk::Ptr<IngL3IifTable::EntryHandle> IngL3IifTable::entryHandleIs(L3TunnelIntfKey key,
                                                                  IngL3IifTable* table) {
   if (const Fwk::Ptr<EntryHandle>* slot = handleSlot(key)) {
      if ((*slot)->swTable() != table) {
         throw Fwk::ReinstantiationError("swTable");
      }
      return *slot;
   }
   Fwk::Ptr<EntryHandle> added = entryHandleFactory(key, table);
   lookupCacheFor(key).handle = {true, &entryHandle_.insert(added)};
   notify("entryHandle", key);
   return added;
}

Fwk::Ptr<IngL3IifTable::EntryHandle> IngL3IifTable::entryHandleDel(L3TunnelIntfKey key) {
   Fwk::Ptr<EntryHandle> removed = entryHandle_.erase(key);
   if (!removed) {
      return nullptr;
   }
   lookupCacheFor(key).handle = {true, nullptr};
   // The collection's hold leaves with it; a reference-only handle's users are unchanged.
   removed->uncountedHolderIs(false);
   notify("entryHandle", key);
   return removed;
}

void IngL3IifTable::entryHandleDelAll() {
   // By a snapshot of the keys: taking the first member until none is left would scan the
   // emptied front of the slots again on every turn. Observers may add handles meanwhile.
   std::vector<L3TunnelIntfKey> keys;
   while (!entryHandle_.empty()) {
      keys.clear();
      keys.reserve(entryHandle_.size());
      for (const Fwk::Ptr<EntryHandle>& handle : entryHandle_) {
         keys.push_back(handle->key());
      }
      for (const L3TunnelIntfKey key : keys) {
         entryHandleDel(key);
      }
   }
}

Fwk::Ptr<IngL3IifTable::EntryHandle> IngL3IifTable::entryHandle(L3TunnelIntfKey key) const {
   const Fwk::Ptr<EntryHandle>* slot = handleSlot(key);
   return slot ? *slot : nullptr;
}

IngL3IifTable::LookupCache& IngL3IifTable::lookupCacheFor(L3TunnelIntfKey key) const {
   if (lookup_.key != key) {
      lookup_ = LookupCache{.key = key, .handle = {}, .resolved = {}};
   }
   return lookup_;
}

const Fwk::Ptr<IngL3IifTable::EntryHandle>* IngL3IifTable::handleSlot(L3TunnelIntfKey key) const {
   return lookUp(lookupCacheFor(key).handle, [&] { return entryHandle_.find(key); });
}

void IngL3IifTable::resolvedEntryIs(L3TunnelIntfKey key, const std::optional<Entry>& value) {
   // The member is ours to change; the lookup (and its cache) only hands out const access.
   if (auto* const current = const_cast<std::optional<Entry>*>(resolvedEntry(key))) {
      std::optional<Entry>& stored = *current;
      if (&stored == &value) {
         return;
      }
      if (stored.has_value()) {
         if (!value.has_value()) {
            stored.reset();
         } else if (*stored == *value) {
            return;  // equal by the entry's equality: a changed dependent field alone is not stored
         } else {
            *stored = *value;
         }
      } else {
         if (!value.has_value()) {
            return;
         }
         stored = value;
      }
   } else {
      lookupCacheFor(key).resolved = {true, &resolvedEntry_.emplace(key, value).first->second};
   }
   Engine(this).handleEntry(key);
   notify("resolvedEntry", key);
}

std::optional<IngL3IifTable::Entry> IngL3IifTable::resolvedEntryDel(L3TunnelIntfKey key) {
   const auto it = resolvedEntry_.find(key);
   if (it == resolvedEntry_.end()) {
      return std::nullopt;
   }
   std::optional<Entry> removed = std::move(it->second);
   resolvedEntry_.erase(it);
   lookupCacheFor(key).resolved = {true, nullptr};
   Engine(this).handleEntry(key);
   notify("resolvedEntry", key);
   return removed;
}

void IngL3IifTable::resolvedEntryDelAll() {
   while (!resolvedEntry_.empty()) {
      resolvedEntryDel(resolvedEntry_.begin()->first);
   }
}

const std::optional<IngL3IifTable::Entry>* IngL3IifTable::resolvedEntry(
    L3TunnelIntfKey key) const {
   return lookUp(lookupCacheFor(key).resolved, [&]() -> const std::optional<Entry>* {
      const auto it = resolvedEntry_.find(key);
      return it == resolvedEntry_.end() ? nullptr : &it->second;
   });
}

void IngL3IifTable::indexAllocatorIs(const Fwk::Ptr<Asic::FirstFreeIndexAllocator>& allocator) {
   if (allocator == indexAllocator_) {
      return;
   }
   Fwk::Ptr<Asic::FirstFreeIndexAllocator> previous = std::move(indexAllocator_);
   indexAllocator_ = allocator;
   notifyWithPrevious("indexAllocator", {},
                      [&] { return Fwk::objectRefText(previous.get()); });
}

Fwk::Ptr<Asic::WriteResponseSm> IngL3IifTable::writeResponseSmIs(Asic::SwTable* swTable) {
   if (writeResponseSm_ && writeResponseSm_->swTable() == swTable) {
      return writeResponseSm_;
   }
   Fwk::Ptr<Asic::WriteResponseSm> previous = std::move(writeResponseSm_);
   writeResponseSm_ = Asic::WriteResponseSm::writeResponseSmFactory(swTable);
   notifyWithPrevious("writeResponseSm", {},
                      [&] { return Fwk::objectRefText(previous.get()); });
   writeResponseSm_->hasNotificationActiveIs(true);
   return writeResponseSm_;
}

Fwk::Ptr<Asic::WriteResponseSm> IngL3IifTable::writeResponseSmDel() {
   if (!writeResponseSm_) {
      return nullptr;
   }
   Fwk::Ptr<Asic::WriteResponseSm> removed = std::move(writeResponseSm_);
   notifyWithPrevious("writeResponseSm", {}, [&] { return Fwk::objectRefText(removed.get()); });
   removed->hasNotificationActiveIs(false);
   return removed;
}

const IngL3IifTable::Util* IngL3IifTable::util() const noexcept {
   return static_cast<const Util*>(Asic::SwTable::util());
}

// ===== Synced entries =====

std::size_t IngL3IifTable::syncedRowPosition(Asic::Index index, bool after) const {
   // Rows are read back in index order: a new one lies beyond the last.
   if (syncedEntry_.empty() || index > syncedEntry_.back().index) {
      return syncedEntry_.size();
   }
   // Rows read back usually fill a range of indices without holes (gaps keep their index): the
   // row's distance from the first is then its position, and the search is not needed.
   if (index >= syncedEntry_.front().index) {
      const std::size_t guess = index - syncedEntry_.front().index;
      if (guess < syncedEntry_.size() && syncedEntry_[guess].index == index) {
         return after ? guess + 1 : guess;
      }
   }
   const auto byIndex = [](const VekSyncedEntry& row, Asic::Index i) { return row.index < i; };
   const auto beyond = [](Asic::Index i, const VekSyncedEntry& row) { return i < row.index; };
   const auto it = after
                       ? std::upper_bound(syncedEntry_.begin(), syncedEntry_.end(), index, beyond)
                       : std::lower_bound(syncedEntry_.begin(), syncedEntry_.end(), index, byIndex);
   return static_cast<std::size_t>(it - syncedEntry_.begin());
}

const VekSyncedEntry* IngL3IifTable::syncedRow(Asic::Index index) const {
   const std::size_t at = syncedRowPosition(index);
   if (at == syncedEntry_.size()) {
      return nullptr;
   }
   const VekSyncedEntry& row = syncedEntry_[at];
   return row.index == index && row.present ? &row : nullptr;
}

VekSyncedEntry* IngL3IifTable::syncedRow(Asic::Index index) {
   return const_cast<VekSyncedEntry*>(std::as_const(*this).syncedRow(index));
}

void IngL3IifTable::syncedGapsCompact() {
   if (syncedEntry_.size() - syncedEntryCount_ > std::size_t{8} * syncedEntryCount_) {
      std::erase_if(syncedEntry_, [](const VekSyncedEntry& row) { return !row.present; });
   }
}

void IngL3IifTable::syncedEntryIs(Asic::Index index, const Entry& entry) {
   const Fwk::ChangeKey key{&Asic::indexType(), index};
   if (VekSyncedEntry* row = syncedRow(index)) {
      Entry& stored = row->entry;
      if (stored == entry) {
         return;
      }
      const Entry previous = stored;
      stored = entry;
      notifyWithPrevious("syncedEntry", key, [&] { return toText(previous); });
      return;
   }
   // The Util reads rows back in index order: most rows go to the end.
   const bool last = syncedEntry_.empty() || syncedEntry_.back().index < index;
   const std::size_t at = last ? syncedEntry_.size() : syncedRowPosition(index);
   if (at < syncedEntry_.size() && syncedEntry_[at].index == index) {
      syncedEntry_[at].entry = entry;  // the row comes back into its gap
      syncedEntry_[at].present = true;
   } else {
      syncedEntry_.insert(syncedEntry_.begin() + static_cast<std::ptrdiff_t>(at),
                          VekSyncedEntry{index, true, entry});
   }
   ++syncedEntryCount_;
   ++syncedEntryVersion_;
   notifyWithPrevious("syncedEntry", key, [] { return toText(Entry()); });
}

IngL3IifTable::Entry IngL3IifTable::syncedEntryDel(Asic::Index index) {
   VekSyncedEntry* row = syncedRow(index);
   if (row == nullptr) {
      return Entry();
   }
   // Released after the notification, as the removed member always was.
   const Entry member = std::exchange(row->entry, Entry());
   row->present = false;
   --syncedEntryCount_;
   ++syncedEntryVersion_;
   syncedGapsCompact();
   Entry removed = member;
   notifyWithPrevious("syncedEntry", Fwk::ChangeKey{&Asic::indexType(), index},
                      [&] { return toText(removed); });
   return removed;
}

IngL3IifTable::Entry IngL3IifTable::syncedEntryDel(const SyncedEntryIterator& it) {
   return syncedEntryDel(it.index());
}

void IngL3IifTable::syncedEntryDelAll() {
   if (!publisher().hasObservers()) {
      syncedEntry_.clear();
      syncedEntryCount_ = 0;
      ++syncedEntryVersion_;
      return;
   }
   for (auto it = syncedEntryIter(); !it.done(); it.advance()) {
      syncedEntryDel(it);
   }
}

IngL3IifTable::Entry IngL3IifTable::syncedEntry(Asic::Index index) const {
   const VekSyncedEntry* row = syncedRow(index);
   return row == nullptr ? Entry() : row->entry;
}

std::optional<IngL3IifTable::Entry> IngL3IifTable::syncedEntryGet(Asic::Index index) const {
   const VekSyncedEntry* row = syncedRow(index);
   return row == nullptr ? std::nullopt : std::optional<Entry>(row->entry);
}

IngL3IifTable::SyncedEntryIterator IngL3IifTable::syncedEntryIter(Asic::Index from) const {
   return SyncedEntryIterator(this, from);
}

IngL3IifTable::SyncedEntryIterator::SyncedEntryIterator(const IngL3IifTable* table,
                                                        Asic::Index from)
    : table_(table),
      position_(table->syncedRowPosition(from)),
      version_(table->syncedEntryVersion_) {
   settle();
}

void IngL3IifTable::SyncedEntryIterator::advance() {
   if (done_) {
      return;
   }
   if (version_ != table_->syncedEntryVersion_) {
      position_ = table_->syncedRowPosition(index_, true);  // the successor by index
      version_ = table_->syncedEntryVersion_;
   } else {
      ++position_;
   }
   settle();
}

void IngL3IifTable::SyncedEntryIterator::settle() {
   const SyncedRows& rows = table_->syncedEntry_;
   while (position_ < rows.size() && !rows[position_].present) {
      ++position_;
   }
   if (position_ == rows.size()) {
      done_ = true;
      entry_ = Entry();
      return;
   }
   index_ = rows[position_].index;
   entry_ = rows[position_].entry;
}

// ===== Entry handle =====

void* IngL3IifTable::EntryHandle::operator new(std::size_t size) {
   return handlePool().allocate(size, alignof(EntryHandle));
}

void IngL3IifTable::EntryHandle::operator delete(void* handle, std::size_t size) noexcept {
   handlePool().deallocate(handle, size, alignof(EntryHandle));
}

const Fwk::SharedNodePool& IngL3IifTable::EntryHandle::pool() noexcept { return handlePool(); }

IngL3IifTable::EntryHandle::EntryHandle(L3TunnelIntfKey key, IngL3IifTable* table)
    : key_(key), swTable_(table) {
   ++live_;
}

IngL3IifTable::EntryHandle::~EntryHandle() {
   underDestructionIs();
   pending_.clear();
   --live_;
}

std::string IngL3IifTable::EntryHandle::entityText() const {
   std::string name = Fwk::Directory::nameOf(this);
   if (!name.empty()) {
      return name;
   }
   std::ostringstream os;
   os << "IngL3IifTable::EntryHandle(" << key_ << ")";
   return os.str();
}

void IngL3IifTable::EntryHandle::swTableIs(IngL3IifTable* table) {
   if (table == swTable_.get()) {
      return;
   }
   Fwk::Ptr<IngL3IifTable> previous = std::move(swTable_);
   swTable_ = table;
   notifyWithPrevious("swTable", {}, [&] { return Fwk::objectRefText(previous.get()); });
}

void IngL3IifTable::EntryHandle::cleanup() { Engine(swTable_.get()).cleanup(this); }

void IngL3IifTable::EntryHandle::lastUserGone() {
   Asic::SwTable::EntryHandle::lastUserGone();
   Engine(swTable_.get()).cleanup(this);
}

void IngL3IifTable::EntryHandle::handleEntryState() {
   Engine(swTable_.get()).handleEntryState(this, key_);
}

void IngL3IifTable::EntryHandle::handleResolvedEntryState() {
   if (swTable_) {  // a handle disconnected from its table has nothing left to drive
      Engine(swTable_.get()).handleResolvedEntryState(this);
   }
}

Asic::Index IngL3IifTable::EntryHandle::hwIndexForDependentField() const {
   return Engine(swTable_.get()).hwIndexForDependentField(this);
}

void IngL3IifTable::EntryHandle::handleIndexSuggestions(const Asic::IndexSet& suggestions) const {
   if (swTable_) {
      Engine(swTable_.get()).handleIndexSuggestions(this, suggestions);
   }
}

void IngL3IifTable::EntryHandle::pendingEntryEnq(const Entry& entry) {
   const Position position = pending_.enq(entry);
   notify("pendingEntry", Fwk::ChangeKey{&pendingPositionType(), position});
}

IngL3IifTable::Entry IngL3IifTable::EntryHandle::pendingEntryDeq() {
   if (pending_.empty()) {
      return Entry();
   }
   Position position = 0;
   Entry entry = pending_.deq(position);
   notify("pendingEntry", Fwk::ChangeKey{&pendingPositionType(), position});
   return entry;
}

IngL3IifTable::Entry IngL3IifTable::EntryHandle::pendingEntryFront() const {
   return pending_.empty() ? Entry() : pending_.frontEntry();
}

IngL3IifTable::Entry IngL3IifTable::EntryHandle::pendingEntryBack() const {
   return pending_.empty() ? Entry() : pending_.backEntry();
}

IngL3IifTable::Entry IngL3IifTable::EntryHandle::pendingEntry(Position position) const {
   const Entry* entry = pending_.at(position);
   return entry ? *entry : Entry();
}

bool IngL3IifTable::EntryHandle::pendingEntryHas(Position position) const {
   return pending_.at(position) != nullptr;
}

void IngL3IifTable::EntryHandle::pendingEntryDelAll() {
   if (!publisher().hasObservers()) {
      pending_.clear();
      return;
   }
   while (!pending_.empty()) {
      pendingEntryDeq();
   }
}

// ===== Unresolved entry =====

IngL3IifTable::UnresolvedEntry::UnresolvedEntry(L3TunnelIntfKey key, IngL3IifTable* table)
    : Asic::SwTable::UnresolvedEntry(table), key_(key) {}

void IngL3IifTable::UnresolvedEntry::doResolve() { Engine(swTable()).doResolve(this); }

void IngL3IifTable::UnresolvedEntry::markFailedNeededEntry() {
   Engine(swTable()).markFailedNeededEntry(this);
}

// ===== Util =====

Asic::Index IngL3IifTable::Util::dependentFieldValueToHwIndex(Asic::Index dependentField) const {
   return dependentField;
}

Asic::Index IngL3IifTable::Util::hwIndexForDependentField(
    const Fwk::Ptr<const Asic::SwTableBase::EntryHandle>& hdl) const {
   return Asic::SwTableBase::getHwEntryIndex(hdl);
}

Asic::Index IngL3IifTable::Util::getHwIndex(
    const Fwk::Ptr<const Asic::SwTableBase::EntryHandle>& hdl) const {
   return Asic::SwTableBase::getHwEntryIndex(hdl);
}

Fwk::Ptr<IngL3IifTable::UtilLoader> IngL3IifTable::UtilLoader::loaderSingletonIs() {
   static const Fwk::Ptr<UtilLoader> loader = [] {
      auto l = Fwk::singletonIs<UtilLoader>(kSingletonName);
      if (l->loadStatus() == LoadStatus::notLoaded) {
         Asic::PluginLoader::load(*l);
      }
      return l;
   }();
   return loader;
}

// ===== Table operations: each builds the engine over this table =====

Fwk::Ptr<const Asic::SwTableBase::EntryHandle> IngL3IifTable::entryRef(const L3TunnelIntfKey& key,
                                                                       const Entry& entry) {
   return Engine(this).entryRef(key, entry);
}

Fwk::Ptr<const Asic::SwTableBase::EntryHandle> IngL3IifTable::entryCommit(
    const L3TunnelIntfKey& key, const Entry& entry) {
   return Engine(this).entryCommit(key, entry);
}

void IngL3IifTable::entryRemove(L3TunnelIntfKey key) { Engine(this).entryRemove(key); }

void IngL3IifTable::handleEntry(L3TunnelIntfKey key) { Engine(this).handleEntry(key); }

IngL3IifTable::Entry IngL3IifTable::entry(const L3TunnelIntfKey& key) const {
   return ConstEngine(this).entry(key);
}

bool IngL3IifTable::entryHas(const L3TunnelIntfKey& key) const {
   return ConstEngine(this).entryHas(key);
}

bool IngL3IifTable::entryInHwTable(const L3TunnelIntfKey& key) const {
   return ConstEngine(this).entryInHwTable(key);
}

IngL3IifTable::EntryIteratorConst IngL3IifTable::entryIteratorConst() const {
   return EntryIteratorConst(this);
}

IngL3IifTable::EntryIteratorConst IngL3IifTable::entryIteratorConst(L3TunnelIntfKey key) const {
   return EntryIteratorConst(this, key);
}

void IngL3IifTable::entryRemoveAll() { Engine(this).entryRemoveAll(); }

void IngL3IifTable::cleanup() { Engine(this).cleanup(); }

void IngL3IifTable::doRecoverHwTable(const Fwk::Ptr<Asic::HwTableRecoverGroup>& rg,
                                     Asic::UnitId unitId,
                                     const Fwk::Ptr<Vosk::EntityManager>& em,
                                     const Asic::ChipInfo& chipInfo) {
   Asic::SwTable::Util::doRecoverHwTable(Fwk::typeOf<IngL3IifTable>(), rg, unitId, em, chipInfo,
                                         "");
}

void IngL3IifTable::doMountHwTableMountInfo(const Fwk::Ptr<Vosk::MountGroup>& mg) {
   Asic::SwTable::Util::doMountHwTableMountInfo(Fwk::typeOf<Util>(), mg, "");
}

void IngL3IifTable::doMountHwTableRecoveryStatus(const Fwk::Ptr<Vosk::MountGroup>& mg) {
   Asic::SwTable::Util::doMountHwTableRecoveryStatus(Fwk::typeOf<Util>(), mg, "");
}

void IngL3IifTable::bindKeyToIndex(L3TunnelIntfKey key, Asic::Index hwIndex) {
   Engine(this).bindKeyToIndex(key, hwIndex);
}

Asic::Index IngL3IifTable::hwIndexOnlyForCrossAgentCommunication(L3TunnelIntfKey key) const {
   const Fwk::Ptr<EntryHandle> handle = entryHandle(key);
   return handle ? getHwIndexForDependentField(handle) : Asic::kInvalidIndex;
}

std::optional<L3TunnelIntfKey> IngL3IifTable::swKeyFromHwIndex(Asic::Index hwIndex) const {
   return Asic::TableTraits<IngL3IifTable>::keyAt(*indexAllocator_, hwIndex);
}

void IngL3IifTable::doCreateAllocator() { Engine(this).doCreateAllocator(); }

void IngL3IifTable::doInitComplete() { Engine(this).doInitComplete(); }

void IngL3IifTable::syncEntries() {
   Engine(this).syncEntries();
   // Rows only arrive here: the synced entries give back what growing by doubling left unused.
   syncedEntry_.shrink_to_fit();
}

void IngL3IifTable::purgeStaleEntries() { Engine(this).purgeStaleEntries(); }

Fwk::Ptr<Asic::SwTable::EntryHandle> IngL3IifTable::getEntryHandle(const void* key) const {
   return entryHandle(*static_cast<const L3TunnelIntfKey*>(key));
}

}  // namespace TalvikL3Decap
