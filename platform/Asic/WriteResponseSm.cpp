#include "Asic/WriteResponseSm.h"

namespace Asic {

Fwk::Ptr<WriteResponseSm> WriteResponseSm::writeResponseSmFactory(SwTable* swTable) {
   return Fwk::Ptr<WriteResponseSm>(new WriteResponseSm(swTable));
}

void WriteResponseSm::hasNotificationActiveIs(bool active) {
   if (active == notificationActive_) {
      return;
   }
   notificationActive_ = active;
   notify("hasNotificationActive");
}

bool WriteResponseSm::writeAcknowledged(const void* key) {
   if (!notificationActive_) {
      return false;
   }
   const Fwk::Ptr<SwTable::EntryHandle> handle = swTable_->getEntryHandle(key);
   const bool waiting = handle && (handle->resolvedEntryState() == SwTableBase::inProgress ||
                                   handle->resolvedEntryState() == SwTableBase::indexReconciled);
   if (!waiting) {
      ++dropped_;
      return false;
   }
   ++acknowledgements_;
   handle->resolvedEntryStateIs(SwTableBase::success);
   return true;
}

}  // namespace Asic
