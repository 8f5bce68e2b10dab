#include "Asic/SwTableBase.h"

#include <atomic>

#include "Fwk/Assert.h"
#include "Fwk/Trace.h"

namespace Asic {

const char* SwTableBase::entryStateName(EntryState state) noexcept {
   switch (state) {
      case unresolved: return "unresolved";
      case inProgress: return "inProgress";
      case indexReconciled: return "indexReconciled";
      case stateThree: return "stateThree";
      case success: return "success";
      case failedNeededEntry: return "failedNeededEntry";
      case hwIndexExhausted: return "hwIndexExhausted";
   }
   return "invalid";
}

std::ostream& operator<<(std::ostream& os, SwTableBase::EntryState state) {
   return os << SwTableBase::entryStateName(state);
}

Index SwTableBase::getHwIndexForDependentField(const Fwk::Ptr<const EntryHandle>& h) {
   return h->hwIndexForDependentField();
}

Index SwTableBase::getHwEntryIndex(const Fwk::Ptr<const EntryHandle>& h) { return h->hwIndex(); }

bool SwTableBase::neededEntryHandleReady(const EntryHandle& h,
                                         bool publishHwIndexInHandle) noexcept {
   const EntryState s = h.entryState();
   const bool validIndex = h.hwIndex() != kInvalidIndex;
   return s == indexReconciled || ((s == stateThree || s == success) && validIndex) ||
          (publishHwIndexInHandle && validIndex);
}

void SwTableBase::suggestIndicesToNeededEntryHandle(const Fwk::Ptr<const EntryHandle>& h,
                                                    const IndexSet& suggestions) {
   h->handleIndexSuggestions(suggestions);
}

// --- EntryHandle ---

SwTableBase::EntryHandle::~EntryHandle() {
   FWK_ASSERT(watchers_ == nullptr, "watchers_ == nullptr");
}

void SwTableBase::EntryHandle::hwIndexIs(Index index) {
   if (index == hwIndex_) {
      return;
   }
   hwIndex_ = index;
   notify("hwIndex");
   wakeWatchers();
}

void SwTableBase::EntryHandle::entryStateIs(EntryState state) {
   entryState_ = state;
   notify("entryState");
   handleEntryState();
   wakeWatchers();
}

std::size_t SwTableBase::EntryHandle::watchers() const noexcept {
   std::size_t n = 0;
   for (auto* sm = watchers_; sm; sm = sm->next_) {
      ++n;
   }
   return n;
}

void SwTableBase::EntryHandle::wakeEachWatcher() {
   // A woken machine may resolve its entry, which may end other watchers: walk a held copy.
   std::vector<Fwk::Ptr<NeededEntryHandleSm>> woken;
   for (auto* sm = watchers_; sm; sm = sm->next_) {
      woken.emplace_back(sm);
   }
   for (const auto& sm : woken) {
      if (!sm->finished()) {
         sm->handleChangeReportingErrors();
      }
   }
}

// --- NeededEntryHandleSm ---

SwTableBase::NeededEntryHandleSm::NeededEntryHandleSm(UnresolvedEntry* owner,
                                                      const Fwk::Ptr<const EntryHandle>& watched)
    : owner_(owner), watched_(watched) {
   link();
}

SwTableBase::NeededEntryHandleSm::~NeededEntryHandleSm() { unlink(); }

void SwTableBase::NeededEntryHandleSm::link() {
   auto* handle = const_cast<EntryHandle*>(watched_.get());
   next_ = handle->watchers_;
   if (next_) {
      next_->prev_ = this;
   }
   handle->watchers_ = this;
}

void SwTableBase::NeededEntryHandleSm::unlink() noexcept {
   auto* handle = const_cast<EntryHandle*>(watched_.get());
   if (prev_) {
      prev_->next_ = next_;
   } else if (handle->watchers_ == this) {
      handle->watchers_ = next_;
   }
   if (next_) {
      next_->prev_ = prev_;
   }
   prev_ = next_ = nullptr;
}

namespace {
[[maybe_unused]] const Fwk::Trace::Handle& smTrace() {
   static const Fwk::Trace::Handle h("Asic::NeededEntryHandleSm", false);
   return h;
}
std::atomic<std::uint64_t> resolutionErrorCount{0};
}  // namespace

std::uint64_t SwTableBase::resolutionErrors() noexcept { return resolutionErrorCount.load(); }

// A needed entry changes inside its own table's operation; an entry that fails to resolve (its
// dependent field does not fit) must not stop the other watchers or fail that operation. The
// entry keeps waiting; the failure is counted and traced.
void SwTableBase::NeededEntryHandleSm::handleChangeReportingErrors() noexcept {
   try {
      handleChange();
   } catch (const std::exception& e) {
      ++resolutionErrorCount;
      FWK_TRACE(smTrace(), 1, "resolution failed: " << e.what());
   }
}

void SwTableBase::NeededEntryHandleSm::handleChange() {
   const EntryHandle& h = *watched_;
   if (neededEntryHandleReady(h, owner_->publishHwIndexInHandle())) {
      Fwk::Ptr<UnresolvedEntry> owner(owner_);  // resolution may remove the entry from its table
      owner_->smFinished(this);
      return;
   }
   const bool failed = UnresolvedEntry::neededEntryHandleFailed(h);
   if (failed && !failureReported_) {
      failureReported_ = true;
      Fwk::Ptr<UnresolvedEntry> owner(owner_);
      owner->markFailedNeededEntry();
   } else if (!failed) {
      failureReported_ = false;  // a later failure is reported again
   }
}

// --- UnresolvedEntry ---

SwTableBase::UnresolvedEntry::~UnresolvedEntry() {
   for (auto& sm : sms_) {
      sm->unlink();
      sm->owner_ = nullptr;
   }
}

Fwk::Ptr<SwTableBase::NeededEntryHandleSm> SwTableBase::UnresolvedEntry::neededEntryHandleSmIs(
    const Fwk::Ptr<const EntryHandle>& h) {
   auto sm = Fwk::make<NeededEntryHandleSm>(this, h);
   sms_.push_back(sm);
   return sm;
}

bool SwTableBase::UnresolvedEntry::neededEntryHandleFailed(const EntryHandle& h) noexcept {
   return h.entryState() == failedNeededEntry || h.entryState() == hwIndexExhausted;
}

void SwTableBase::UnresolvedEntry::smFinished(NeededEntryHandleSm* sm) {
   sm->unlink();
   sm->owner_ = nullptr;
   std::erase_if(sms_, [sm](const auto& p) { return p.get() == sm; });
   if (sms_.empty()) {
      doResolve();
   }
}

}  // namespace Asic
