// Base of every software table: entry states, entry handles, unresolved entries and the
// needed-entry-handle state machines through which an entry waits for the entries it needs in
// other tables.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "Asic/Types.h"
#include "Fwk/Entity.h"

namespace Asic {

class SwTableBase : public Fwk::Entity {
  public:
   static constexpr std::string_view kTypeName = "Asic::SwTableBase";

   enum EntryState : std::uint8_t {
      unresolved = 0,
      inProgress = 1,
      indexReconciled = 2,
      stateThree = 3,
      success = 4,
      failedNeededEntry = 5,
      hwIndexExhausted = 6,
   };
   // The state's name, e.g. "inProgress".
   static const char* entryStateName(EntryState state) noexcept;

   class EntryHandle;
   class UnresolvedEntry;
   class NeededEntryHandleSm;

   // The index that a dependent field of another table must hold to refer to `h`'s entry.
   static Index getHwIndexForDependentField(const Fwk::Ptr<const EntryHandle>& h);
   // The handle's own hardware index.
   static Index getHwEntryIndex(const Fwk::Ptr<const EntryHandle>& h);
   // The readiness rule for a needed entry handle: its index is settled after a restart
   // (indexReconciled), or it is confirmed (success, stateThree) with a valid index, or the
   // dependent table's Util publishes indices in handles and the handle has a valid one.
   static bool neededEntryHandleReady(const EntryHandle& h, bool publishHwIndexInHandle) noexcept;

   // Resolutions run by needed-entry state machines that ended in an error (process-wide).
   static std::uint64_t resolutionErrors() noexcept;

   // Delivers index suggestions to the needed handle's own table (its handleIndexSuggestions).
   static void suggestIndicesToNeededEntryHandle(const Fwk::Ptr<const EntryHandle>& h,
                                                 const IndexSet& suggestions);
};

std::ostream& operator<<(std::ostream& os, SwTableBase::EntryState state);

// A key's entry handle: what clients and dependent tables hold. Carries the hardware index, the
// entry type and the two entry states. Other tables' unresolved entries may watch it (needed-entry
// state machines); they are told whenever its state or index changes.
class SwTableBase::EntryHandle : public Fwk::Entity {
  public:
   static constexpr std::string_view kTypeName = "Asic::SwTableBase::EntryHandle";

   enum EntryType : std::uint8_t { unset = 0, referenceOnly = 1, committed = 2, inDeletion = 3 };

   // The entry's hardware index; invalid until one is published (a Util that publishes indices
   // in handles, a reconciled index after a restart, PUBLISH_ENTRY_HANDLE_PROGRAMMED_STATE).
   Index hwIndex() const noexcept { return hwIndex_; }
   // Sets the index; publishes "hwIndex" and wakes watchers when it changes.
   void hwIndexIs(Index index);

   EntryState entryState() const noexcept { return entryState_; }
   // Stores the state, publishes "entryState", runs handleEntryState() and wakes watchers.
   void entryStateIs(EntryState state);

   // unset, referenceOnly (lives while clients hold it), committed (kept until entryRemove),
   // inDeletion (its row is being emptied and deleted). The raw setter: the engine also keeps
   // the collection's uncounted hold in step (AsicSwTable/WritePath.h).
   std::uint8_t entryType() const noexcept { return entryType_; }
   void entryTypeIs(std::uint8_t type) noexcept { entryType_ = type; }

   // The state of the key's row in hardware: inProgress once written, success once
   // acknowledged, indexReconciled when adopted after a restart, hwIndexExhausted when no index
   // was free. Set through SwTable::EntryHandle::resolvedEntryStateIs.
   EntryState resolvedEntryState() const noexcept { return resolvedEntryState_; }

   // The index a dependent field of another table puts in to refer to this entry.
   virtual Index hwIndexForDependentField() const { return hwIndex_; }
   // Index suggestions from a dependent table during configuration replay.
   virtual void handleIndexSuggestions(const IndexSet& /*suggestions*/) const {}

   // Number of needed-entry state machines of other entries watching this handle.
   std::size_t watchers() const noexcept;

  protected:
   EntryHandle() = default;
   ~EntryHandle() override;
   virtual void handleEntryState() {}
   void resolvedEntryStateSet(EntryState state) noexcept { resolvedEntryState_ = state; }
   // Runs the watchers' state machines; the common case, none, costs a test at the call.
   void wakeWatchers() {
      if (watchers_ != nullptr) [[unlikely]] {
         wakeEachWatcher();
      }
   }

  private:
   friend class NeededEntryHandleSm;
   void wakeEachWatcher();
   NeededEntryHandleSm* watchers_ = nullptr;
   Index hwIndex_ = kInvalidIndex;
   EntryState entryState_ = unresolved;
   EntryState resolvedEntryState_ = unresolved;
   std::uint8_t entryType_ = unset;
};

// Watches one needed entry handle for an unresolved entry. Finishes when the handle is ready
// (see UnresolvedEntry::neededEntryHandleReady); tells its entry when the handle fails.
class SwTableBase::NeededEntryHandleSm : public Fwk::PtrInterface {
  public:
   // Made by UnresolvedEntry::neededEntryHandleSmIs; starts watching `watched`.
   NeededEntryHandleSm(UnresolvedEntry* owner, const Fwk::Ptr<const EntryHandle>& watched);
   ~NeededEntryHandleSm() override;

   const Fwk::Ptr<const EntryHandle>& watched() const noexcept { return watched_; }
   // True once the watched handle was ready, or the unresolved entry went away.
   bool finished() const noexcept { return owner_ == nullptr; }

  private:
   friend class EntryHandle;
   friend class UnresolvedEntry;
   void link();
   void unlink() noexcept;
   // Re-evaluates the watched handle; may finish (and resolve the owner) or report a failure.
   void handleChange();
   void handleChangeReportingErrors() noexcept;

   UnresolvedEntry* owner_;
   Fwk::Ptr<const EntryHandle> watched_;
   NeededEntryHandleSm* prev_ = nullptr;
   NeededEntryHandleSm* next_ = nullptr;
   bool failureReported_ = false;
};

// A value waiting for the entries it needs. Holds its needed-entry state machines; when the last
// outstanding one finishes the platform calls doResolve().
class SwTableBase::UnresolvedEntry : public Fwk::Entity {
  public:
   static constexpr std::string_view kTypeName = "Asic::SwTableBase::UnresolvedEntry";

   // Registers a state machine that watches `h`; it counts as outstanding until `h` is ready.
   Fwk::Ptr<NeededEntryHandleSm> neededEntryHandleSmIs(const Fwk::Ptr<const EntryHandle>& h);
   // Outstanding state machines.
   std::size_t neededEntryHandleSms() const noexcept { return sms_.size(); }

   // Run when the last outstanding needed handle became ready.
   virtual void doResolve() = 0;
   // Run when a needed handle failed (neededEntryHandleFailed).
   virtual void markFailedNeededEntry() = 0;
   // Whether the dependent table's Util publishes hardware indices in handles (readiness rule).
   virtual bool publishHwIndexInHandle() const { return false; }
   // A needed handle has failed when its own entry needs a failed entry or found no index.
   static bool neededEntryHandleFailed(const EntryHandle& h) noexcept;

  protected:
   UnresolvedEntry() = default;
   ~UnresolvedEntry() override;

  private:
   friend class NeededEntryHandleSm;
   void smFinished(NeededEntryHandleSm* sm);
   std::vector<Fwk::Ptr<NeededEntryHandleSm>> sms_;
};

}  // namespace Asic
