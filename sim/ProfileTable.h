// The simulator's L3 IIF profile table: the table that decap entries need. Its entry handles go
// through the same states as any table's (written and acknowledged, or adopted after a restart),
// and its rows live on the simulated chip (256 rows, each holding the profile id).
//
// Restart. readBack() learns which profile each row held. During the replay a profile committed
// again waits (unresolved) for the decap table to suggest the index it used; a suggestion whose
// read-back row holds the same profile is adopted without a write. initComplete() settles the
// rest: a profile whose id is still found in a read-back row adopts it, any other is written to
// a free row. purgeStale() deletes the read-back rows no profile claimed.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "Asic/SwTableBase.h"
#include "sim/SimChip.h"

namespace Sim {

class ProfileTable : public WriteCompletions {
  public:
   class Handle : public Asic::SwTableBase::EntryHandle {
     public:
      static constexpr std::string_view kTypeName = "Sim::ProfileTable::Handle";
      Handle(ProfileTable* table, std::uint32_t profileId);
      ~Handle() override;
      const Fwk::TypeDescriptor& typeData() const override { return Fwk::typeOf<Handle>(); }
      std::string entityText() const override;
      std::uint32_t profileId() const noexcept { return profileId_; }
      void handleIndexSuggestions(const Asic::IndexSet& suggestions) const override;

     private:
      friend class ProfileTable;
      ProfileTable* table_;
      std::uint32_t profileId_;
   };

   struct Statistics {
      std::uint64_t adopted = 0;  // read-back rows taken over without a write
      std::uint64_t written = 0;  // rows written
      std::uint64_t purged = 0;   // stale rows deleted
      std::uint64_t removed = 0;  // rows of removed profiles deleted
   };

   explicit ProfileTable(SimChip& chip);
   ~ProfileTable() override;
   ProfileTable(const ProfileTable&) = delete;
   ProfileTable& operator=(const ProfileTable&) = delete;

   // After a restart: reads the rows back and enters the replay.
   void readBack();
   bool replay() const noexcept { return replay_; }

   // The profile's handle, created and programmed (or, during the replay, left waiting) if new.
   Fwk::Ptr<Handle> profileCommit(std::uint32_t profileId);
   // Removes a profile; its row is deleted. Refused (false) while decap entries still need it.
   bool profileRemove(std::uint32_t profileId);
   Fwk::Ptr<Handle> profile(std::uint32_t profileId) const;
   std::size_t profiles() const noexcept { return handles_.size(); }

   void initComplete();
   void purgeStale();

   const Statistics& statistics() const noexcept { return statistics_; }
   std::size_t pendingAcks() const override { return completions_.size(); }
   std::size_t deliverAcks(std::size_t limit, bool flush = false) override;

  private:
   void program(Handle& handle);
   void adopt(Handle& handle, Asic::Index index);
   Asic::Index freeRow() const;
   void suggestion(const Handle& handle, Asic::Index index);
   std::optional<Asic::Index> readBackRowOf(std::uint32_t profileId) const;

   SimChip& chip_;
   std::map<std::uint32_t, Fwk::Ptr<Handle>> handles_;
   // Rows read back and not yet claimed: index to profile id.
   std::map<Asic::Index, std::uint32_t> readBack_;
   std::vector<bool> used_;
   CompletionQueue<std::uint32_t> completions_;
   Statistics statistics_;
   bool replay_ = false;
};

}  // namespace Sim
