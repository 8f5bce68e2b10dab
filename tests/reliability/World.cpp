#include "reliability/World.h"

#include <algorithm>
#include <sstream>
#include <stdexcept>

#include "Asic/ChipProfile.h"
#include "Asic/HwTable.h"
#include "TalvikL3Unicast/L3NextHopAttributes.h"

// Returns the failure `expr` gives, if any, from the calling function.
#define RETURN_IF_FAILED(expr)          \
   if (auto f_ = (expr); !f_.empty()) { \
      return f_;                        \
   }

namespace Reliability {

using S = Asic::SwTableBase;

namespace {

L3TunnelIntfKey keyOf(std::uint32_t key) {
   return L3TunnelIntfKey(1000 + key);
}

template <class... Parts>
std::string failure(const Parts&... parts) {
   std::ostringstream os;
   (os << ... << parts);
   return os.str();
}

Fwk::Ptr<const Asic::ChipProfile> chipProfile() {
   auto profile = Fwk::make<Asic::ChipProfile>("reliability-chip");
   profile->featureIs(Fwk::typeOf<TalvikL3Unicast::L3NextHopAttributes>(),
                      Fwk::make<TalvikL3Unicast::L3NextHopAttributes>(true));
   return profile;
}

// The dependent-field value a profile gives at resolution, or nothing when it does not fit.
std::optional<std::uint8_t> resolutionIndex(const Profile& p) {
   if (p.entryState() == S::stateThree) {
      return static_cast<std::uint8_t>(p.hwIndex());
   }
   if (p.hwIndex() > 255) {
      return std::nullopt;
   }
   return static_cast<std::uint8_t>(p.hwIndex());
}

}  // namespace

World::World(const WorldShape& shape)
    : shape_(shape),
      chip_(std::make_unique<Sim::SimChip>(Sim::ChipState::inMemory(shape.tableSize))),
      model_(shape.keys) {
   chip_->ackPolicyIs(Sim::AckPolicy{shape.ackWindow, shape.ackHoldBack, shape.tableSize});
   for (std::uint32_t p = 0; p < shape.profiles; ++p) {
      profiles_.push_back(Fwk::make<Profile>());
      profiles_.back()->hwIndexIs(10 + p);
      profiles_.back()->entryStateIs(S::success);
   }
   createTable();
   if (!completeRestart().empty()) {
      throw std::runtime_error("the cold start failed");
   }
}

World::~World() {
   static_cast<void>(dropTable());
}

void World::createTable() {
   table_ = TalvikL3Decap::ingL3IifTableFactory();
   table_->setUp(Fwk::make<Asic::HwTable>("IngL3IifDecap", shape_.tableSize), chipProfile(),
                 shape_.tableSize);
   completions_ =
       dynamic_cast<Sim::WriteCompletions*>(const_cast<IngL3IifTable::Util*>(table_->util()));
   if (completions_ == nullptr) {
      throw std::runtime_error("the simulated chip's plug-in was not loaded");
   }
}

// The agent process ends: nothing it does on the way out reaches the chip. A handle a client
// still holds then counts that client's references alone.
std::string World::dropTable() {
   if (!table_) {
      return {};
   }
   table_->utilIs(nullptr);
   completions_ = nullptr;
   table_->cleanup();
   table_ = nullptr;
   std::string f;
   for (const auto& held : held_) {
      const auto holders = std::count_if(held_.begin(), held_.end(), [&](const auto& other) {
         return other.second == held.second;
      });
      if (f.empty() && held.second->refCount() != static_cast<std::uint32_t>(holders)) {
         f = failure("k", held.first, ": a handle held ", holders, " times counts ",
                     held.second->refCount(), " users once its table is gone");
      }
   }
   held_.clear();
   return f;
}

IngL3IifTable::Entry World::entryOf(const Value& v) const {
   return IngL3IifTable::Entry(v.profile < 0 ? nullptr : profiles_[std::size_t(v.profile)], 0,
                               v.ipv4, v.ipv6, v.dscp, v.vrf);
}

bool World::profileReady(int profile) const {
   const Profile& p = *profiles_[static_cast<std::size_t>(profile)];
   return p.hwIndex() != Asic::kInvalidIndex || p.entryState() == S::indexReconciled;
}

// The model of resolution: a value without profile, or whose profile is ready, resolves now
// (or fails for good when its index does not fit); any other waits.
void World::resolveModel(KeyModel& m) {
   const Value& v = *m.latest;
   m.waiting = v.profile >= 0 && !profileReady(v.profile);
   m.stuck = false;
   if (m.waiting) {
      return;
   }
   const auto index = v.profile < 0 ? std::optional<std::uint8_t>(0)
                                    : resolutionIndex(*profiles_[std::size_t(v.profile)]);
   m.stuck = !index;
   if (index) {
      m.resolved = v;
      m.resolvedProfileIndex = *index;
   }
   m.pendingCopy = !index && (m.pendingCopy || m.resolved.has_value());
}

std::string World::apply(const Op& op) {
   ++operations_;
   switch (op.kind) {
      case OpKind::commit:
      case OpKind::ref:
         return commit(op, op.kind == OpKind::ref);
      case OpKind::restart:
         return restart(op.arg);
      case OpKind::quiesce:
         return quiesceAndCheck();
      case OpKind::replay:
         return replayNext(op.arg);
      case OpKind::initComplete:
         return initComplete();
      case OpKind::purge:
         return purge();
      case OpKind::remove:
         remove(op.key);
         break;
      case OpKind::release:
         release(op.arg);
         break;
      case OpKind::profileIndex:
      case OpKind::profileState:
         if (op.kind == OpKind::profileIndex) {
            profiles_[op.key]->hwIndexIs(op.arg);
         } else {
            profiles_[op.key]->entryStateIs(static_cast<S::EntryState>(op.arg));
         }
         profileChanged(op.key);
         break;
      case OpKind::ack:
         completions_->deliverAcks(op.arg, false);
         break;
   }
   return {};
}

std::string World::commit(const Op& op, bool reference) {
   KeyModel& m = model_[op.key];
   const bool alive = m.committed || m.refs > 0;
   Fwk::Ptr<const S::EntryHandle> handle;
   bool threw = false;
   try {
      handle = reference ? table_->entryRef(keyOf(op.key), entryOf(op.value))
                         : table_->entryCommit(keyOf(op.key), entryOf(op.value));
   } catch (const std::range_error&) {
      threw = true;
   }
   bool expectThrow = false;
   if (!(alive && m.latest == op.value)) {
      m.latest = op.value;
      if (alive && m.resolved == op.value) {
         m.waiting = m.stuck = false;  // the value in force is taken again
      } else {
         resolveModel(m);
         expectThrow = m.stuck;
      }
   }
   if (threw != expectThrow) {
      return failure(threw ? "unexpected range error" : "missing range error", " on k", op.key);
   }
   if (!reference) {
      m.committed = true;
   } else if (handle) {
      ++m.refs;
      held_.emplace_back(op.key, handle);
   } else if (!alive) {
      forget(m);  // the handle's only holder was the failed call: it is cleaned up
   }
   return {};
}

void World::remove(std::uint32_t key) {
   table_->entryRemove(keyOf(key));
   KeyModel& m = model_[key];
   if (!m.committed) {
      return;
   }
   m.committed = false;
   if (m.waiting || m.stuck) {
      m.latest = m.resolved;  // the waiting value goes with the commitment
      m.waiting = m.stuck = false;
   }
   if (m.refs == 0) {
      forget(m);
   }
}

void World::release(std::uint32_t which) {
   if (held_.empty()) {
      return;
   }
   const auto it = held_.begin() + static_cast<std::ptrdiff_t>(which % held_.size());
   KeyModel& m = model_[it->first];
   held_.erase(it);
   if (--m.refs == 0 && !m.committed) {
      forget(m);
   }
}

void World::forget(KeyModel& m) const {
   const bool bound = m.bound && phase_ != Phase::running;
   m = KeyModel{};
   m.bound = bound;
}

void World::profileChanged(std::uint32_t profile) {
   for (KeyModel& m : model_) {
      if (m.waiting && m.latest->profile == static_cast<int>(profile) &&
          profileReady(static_cast<int>(profile))) {
         resolveModel(m);
      }
   }
}

void World::deliver(bool flush) {
   if (completions_ != nullptr) {
      while (completions_->deliverAcks(SIZE_MAX, flush) > 0) {
      }
   }
}

std::string World::replayNext(std::size_t count) {
   for (; count > 0 && phase_ == Phase::replaying && !replayQueue_.empty(); --count) {
      const auto [key, value] = replayQueue_.front();
      replayQueue_.erase(replayQueue_.begin());
      if (auto f = commit(Op{OpKind::commit, key, 0, value}, false); !f.empty()) {
         return "replaying: " + f;
      }
   }
   return {};
}

std::string World::initComplete() {
   if (phase_ != Phase::replaying) {
      return {};
   }
   RETURN_IF_FAILED(replayNext(replayQueue_.size()));
   table_->doInitComplete();
   phase_ = Phase::initComplete;
   return {};
}

std::string World::purge() {
   if (phase_ == Phase::running) {
      return {};
   }
   RETURN_IF_FAILED(initComplete());
   table_->purgeStaleEntries();
   phase_ = Phase::running;
   // The purge gave the read-back rows nobody claimed back: an entry still without a row is one
   // that the table has no room for.
   const auto& allocator = *table_->indexAllocator();
   for (const auto& handle : table_->entryHandleMap()) {
      if (handle->resolvedEntryState() == S::hwIndexExhausted &&
          allocator.totalUsedIndices() < shape_.tableSize) {
         return failure("k", handle->key().value() - keyOf(0).value(),
                        " found no index although the purge left ",
                        shape_.tableSize - allocator.totalUsedIndices(), " free");
      }
   }
   for (KeyModel& m : model_) {
      m.bound = m.bound && m.present();  // the purge gave unclaimed bindings back
   }
   saveBindings();  // the agent writes its state store at the end of each completed start
   return {};
}

std::string World::completeRestart() {
   RETURN_IF_FAILED(initComplete());
   deliver(false);
   RETURN_IF_FAILED(purge());
   deliver(true);
   return {};
}

void World::saveBindings() {
   bindings_.clear();
   for (std::uint32_t k = 0; k < shape_.keys; ++k) {
      const Asic::Index index = table_->hwIndexOnlyForCrossAgentCommunication(keyOf(k));
      if (index != Asic::kInvalidIndex && table_->entryInHwTable(keyOf(k))) {
         bindings_.emplace(keyOf(k).value(), index);
      }
   }
}

bool World::zeroWriteRestartExpected() const {
   for (const auto& handle : table_->entryHandleMap()) {
      if (handle->resolvedEntryState() == S::hwIndexExhausted) {
         return false;  // it will find an index now, or try again
      }
   }
   // Every key alive has its latest value committed and in force, as its profile gives it now.
   return std::all_of(model_.begin(), model_.end(), [this](const KeyModel& m) {
      const int p = m.resolved ? m.resolved->profile : -1;
      return !m.present() ||
             (m.committed && !m.waiting && !m.stuck && m.latest && m.latest == m.resolved &&
              (p < 0 || (profileReady(p) &&
                         resolutionIndex(*profiles_[std::size_t(p)]) == m.resolvedProfileIndex)));
   });
}

std::string World::restart(std::uint32_t flags) {
   ++restarts_;
   bool expectZeroWrites = false;
   if (flags & kQuiesceFirst) {
      RETURN_IF_FAILED(quiesceAndCheck());
      expectZeroWrites = zeroWriteRestartExpected() && !(flags & kRowFault);
   }
   const Sim::SimChip::Counters before = chip_->counters();
   RETURN_IF_FAILED(dropTable());
   // The configuration the new instance replays: what clients committed, and what an
   // interrupted replay had not reached yet. Nothing else of the old instance survives.
   std::map<std::uint32_t, Value> configuration(replayQueue_.begin(), replayQueue_.end());
   for (std::uint32_t k = 0; k < shape_.keys; ++k) {
      if (model_[k].committed) {
         configuration[k] = *model_[k].latest;
      }
      model_[k] = KeyModel{};
   }
   replayQueue_.assign(configuration.begin(), configuration.end());
   phase_ = Phase::replaying;
   createTable();
   table_->syncEntries();
   if (flags & kRowFault) {
      for (std::uint32_t i = 0; i < shape_.tableSize; ++i) {
         Sim::DecapRow row = chip_->state().decapRow(i);
         if (row.state == Sim::RowState::valued) {
            row.vrf ^= 1;  // the row changed between the read-back and the replay
            chip_->state().decapRowIs(i, row);
            break;
         }
      }
   }
   for (const auto& [key, index] : bindings_) {
      table_->bindKeyToIndex(L3TunnelIntfKey(key), index);
      model_[static_cast<std::uint32_t>(key - keyOf(0).value())].bound = true;
   }
   if (flags & kNestedRestart) {
      RETURN_IF_FAILED(replayNext(replayQueue_.size() / 2));
      return restart(flags & (kRowFault | kLive));  // the agent dies again during its replay
   }
   if (flags & kLive) {
      return {};  // clients act while the replay, doInitComplete and the purge come one by one
   }
   RETURN_IF_FAILED(completeRestart());
   if (expectZeroWrites) {
      const auto& after = chip_->counters();
      if (after.decapWrites != before.decapWrites || after.decapDeletes != before.decapDeletes) {
         return failure("a restart with an unchanged configuration wrote ",
                        after.decapWrites - before.decapWrites, " and deleted ",
                        after.decapDeletes - before.decapDeletes, " rows");
      }
   }
   return {};
}

std::string World::quiesceAndCheck() {
   if (phase_ != Phase::running) {
      RETURN_IF_FAILED(completeRestart());
   }
   deliver(true);
   for (std::uint32_t k = 0; k < shape_.keys; ++k) {
      if (auto f = checkKey(k); !f.empty()) {
         return failure("k", k, ": ", f);
      }
   }
   RETURN_IF_FAILED(checkRows());
   saveBindings();
   return {};
}

std::string World::checkKey(std::uint32_t k) {
   const KeyModel& m = model_[k];
   const L3TunnelIntfKey key = keyOf(k);
   const bool alive = m.committed || m.refs > 0;
   const bool visible = alive && m.latest.has_value();
   if (table_->entryHas(key) != visible) {
      return failure("entryHas is ", !visible, ", the model says ", visible);
   }
   if (!(table_->entry(key) == (visible ? entryOf(*m.latest) : IngL3IifTable::Entry()))) {
      return failure("entry is ", table_->entry(key), ", the model's is ",
                     visible ? entryOf(*m.latest) : IngL3IifTable::Entry());
   }
   if ((table_->unresolvedEntry(key) != nullptr) != (alive && (m.waiting || m.stuck))) {
      return "an unresolved entry where the model has none, or none where it waits";
   }
   const auto handle = table_->entryHandle(key);
   const Asic::Index index = table_->indexAllocator()->index(Fwk::typeOf<L3TunnelIntfKey>(), &key);
   if (!alive) {
      return handle || index != Asic::kInvalidIndex ? "a removed key kept its handle or index"
                                                    : std::string();
   }
   if (!handle) {
      return "a live key has no handle";
   }
   if (!m.pendingCopy && handle->pendingEntrys() != 0) {
      return failure(handle->pendingEntrys(), " pending entries left at a quiescent point");
   }
   if (!m.resolved) {
      // Only the index a restart bound it to, kept for it until it resolves.
      return index == Asic::kInvalidIndex || m.bound ? std::string()
                                                     : "an unresolved key holds an index";
   }
   if (handle->resolvedEntryState() == S::hwIndexExhausted) {
      return shape_.tableSize < shape_.keys && index == Asic::kInvalidIndex
                 ? std::string()
                 : "hwIndexExhausted in a table that has room";
   }
   const Sim::DecapRow row =
       index < shape_.tableSize ? chip_->state().decapRow(index) : Sim::DecapRow{};
   const Value& v = *m.resolved;
   const Sim::DecapRow expected{
       Sim::RowState::valued, m.resolvedProfileIndex, v.ipv4, v.ipv6, v.dscp, v.vrf};
   if (!(row == expected)) {
      return failure("hardware row ", index, " does not hold the value in force (vrf ", row.vrf,
                     " state ", int(row.state), ", expected vrf ", v.vrf, " profile index ",
                     int(m.resolvedProfileIndex), ")");
   }
   if (handle->resolvedEntryState() != S::success &&
       handle->resolvedEntryState() != S::indexReconciled) {
      return failure("resolvedEntryState ", handle->resolvedEntryState(), " after every ack");
   }
   if (handle->hwIndex() != index) {
      return failure("the handle reports index ", handle->hwIndex(), ", the allocator holds ",
                     index);
   }
   return {};
}

std::string World::checkRows() {
   std::uint32_t owned = 0;
   const Asic::IndexUserTracker& tracker = *table_->hwTable()->indexUserTracker();
   for (std::uint32_t i = 0; i < shape_.tableSize; ++i) {
      const bool valued = chip_->state().decapRow(i).state == Sim::RowState::valued;
      const auto owner = table_->indexAllocator()->owner(i);
      owned += owner ? 1 : 0;
      if (valued && !owner) {
         return failure("hardware row ", i, " holds a value that no key owns");
      }
      if (tracker.users(i) != (valued ? 1U : 0U)) {
         return failure("the index-user tracker counts ", tracker.users(i), " users of row ", i,
                        valued ? ", which holds a value" : ", which holds none");
      }
   }
   if (tracker.underflows() != 0) {
      return failure("the index-user tracker was told of ", tracker.underflows(),
                     " releases of unused rows");
   }
   const auto* allocator = table_->indexAllocator().get();
   if (allocator->totalUsedIndices() != owned || allocator->heldBackIndices() != 0) {
      return failure("the allocator holds ", allocator->totalUsedIndices(), " indices and ",
                     allocator->heldBackIndices(), " held back; keys own ", owned);
   }
   if (IngL3IifTable::EntryHandle::liveHandles() != table_->entrys()) {
      return failure(IngL3IifTable::EntryHandle::liveHandles(), " handles alive, the table has ",
                     table_->entrys());
   }
   return {};
}

std::string World::finish() {
   RETURN_IF_FAILED(quiesceAndCheck());
   held_.clear();
   table_->entryRemoveAll();
   deliver(true);
   if (table_->entrys() != 0 || table_->indexAllocator()->totalUsedIndices() != 0) {
      return failure("after removing everything ", table_->entrys(), " handles and ",
                     table_->indexAllocator()->totalUsedIndices(), " indices remain");
   }
   RETURN_IF_FAILED(dropTable());
   if (IngL3IifTable::EntryHandle::liveHandles() != 0) {
      return failure(IngL3IifTable::EntryHandle::liveHandles(), " handles leaked");
   }
   for (const auto& p : profiles_) {
      if (p->refCount() != 1) {
         return failure("a profile handle is still referenced ", p->refCount() - 1, " times");
      }
   }
   return {};
}

std::string runCase(const WorldShape& shape, const std::vector<Op>& ops) {
   World world(shape);
   for (std::size_t i = 0; i < ops.size(); ++i) {
      if (auto f = world.apply(ops[i]); !f.empty()) {
         return "after op #" + std::to_string(i) + " (" + ops[i].text() + "): " + f;
      }
   }
   if (auto f = world.finish(); !f.empty()) {
      return "at the end: " + f;
   }
   return {};
}

}  // namespace Reliability
