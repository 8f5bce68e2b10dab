// The world of the model-based test: the decap table over the simulated chip and its plug-in,
// the profile handles it needs (moved by the test), the clients' handles, and a reference model
// of what clients configured. `apply` runs one operation on both; `check` compares the table,
// the chip and the allocator with the model at a quiescent point.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "TalvikL3Decap/IngL3IifDecapTable.h"
#include "reliability/Operations.h"
#include "sim/SimChip.h"

namespace Reliability {

using TalvikL3Decap::IngL3IifTable;
using TalvikL3Decap::L3TunnelIntfKey;

// A profile-table entry handle the test moves through indices and states.
class Profile : public Asic::SwTableBase::EntryHandle {
 public:
   static constexpr std::string_view kTypeName = "Reliability::Profile";
   const Fwk::TypeDescriptor& typeData() const override { return Fwk::typeOf<Profile>(); }
};

// What the model knows of one key.
struct KeyModel {
   bool committed = false;
   int refs = 0;
   std::optional<Value> latest;    // the value clients wrote last
   std::optional<Value> resolved;  // the value in force
   std::uint8_t resolvedProfileIndex = 0;
   bool waiting = false;  // latest waits for its profile
   bool stuck = false;    // latest failed to resolve; waits for a new value
   bool bound = false;    // bound at a restart to the index the agent's store had for it
   // A failed resolution leaves the value then in force on the handle's pending queue until the
   // next resolution is acknowledged.
   bool pendingCopy = false;
   bool present() const noexcept { return committed || refs > 0; }
};

class World {
 public:
   explicit World(const WorldShape& shape);
   ~World();
   World(const World&) = delete;
   World& operator=(const World&) = delete;

   // Runs one operation; returns a failure description, or empty.
   std::string apply(const Op& op);
   // Delivers every completion and compares everything with the model.
   std::string quiesceAndCheck();
   // Releases everything; returns a failure if a handle or an index leaked.
   std::string finish();

   std::uint64_t operations() const noexcept { return operations_; }
   std::uint64_t restarts() const noexcept { return restarts_; }

 private:
   void createTable();
   std::string dropTable();
   std::string commit(const Op& op, bool reference);
   void remove(std::uint32_t key);
   void release(std::uint32_t which);
   void profileChanged(std::uint32_t profile);
   std::string restart(std::uint32_t flags);
   std::string replayNext(std::size_t count);
   std::string initComplete();
   std::string purge();
   std::string completeRestart();
   // A key nobody holds any more; during a restart it keeps the binding the restart gave it.
   void forget(KeyModel& m) const;
   void deliver(bool flush);
   void resolveModel(KeyModel& m);
   bool profileReady(int profile) const;
   void saveBindings();
   IngL3IifTable::Entry entryOf(const Value& v) const;
   std::string checkKey(std::uint32_t key);
   std::string checkRows();
   bool zeroWriteRestartExpected() const;

   WorldShape shape_;
   std::unique_ptr<Sim::SimChip> chip_;
   std::vector<Fwk::Ptr<Profile>> profiles_;
   Fwk::Ptr<IngL3IifTable> table_;
   Sim::WriteCompletions* completions_ = nullptr;
   std::vector<std::pair<std::uint32_t, Fwk::Ptr<const Asic::SwTableBase::EntryHandle>>> held_;
   std::vector<KeyModel> model_;
   std::map<std::uint64_t, Asic::Index> bindings_;  // the agent's state store
   // Where a restart stands: the replay runs, doInitComplete has run, or the restart is over.
   enum class Phase : std::uint8_t { running, replaying, initComplete };
   Phase phase_ = Phase::replaying;
   // The configuration the agent has still to replay, key by key.
   std::vector<std::pair<std::uint32_t, Value>> replayQueue_;
   std::uint64_t operations_ = 0;
   std::uint64_t restarts_ = 0;
};

// Runs a case in this process; returns the failure, naming the operation, or empty.
std::string runCase(const WorldShape& shape, const std::vector<Op>& ops);

}  // namespace Reliability
