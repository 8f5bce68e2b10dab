// The write-response state machine of a table: turns the hardware's acknowledgement of a row
// write into `resolvedEntryStateIs(success)` on the key's entry handle.
//
// A write is acknowledged by the key it was made for (the chip plug-in records the key when it
// issues the write). Only a handle that waits for hardware (its resolved-entry state is
// inProgress or indexReconciled) takes an acknowledgement. One that arrives while notification
// is off, for a key whose handle is gone, or late for a handle that no longer waits (its key was
// removed and taken again, say) is dropped: nothing waits for it any more.
#pragma once

#include "Asic/SwTable.h"
#include "Fwk/Entity.h"

namespace Asic {

class WriteResponseSm : public Fwk::Entity {
  public:
   static constexpr std::string_view kTypeName = "Asic::WriteResponseSm";

   // A state machine for the table, notification off. The table's writeResponseSmIs makes one
   // (doInitComplete) and turns notification on.
   static Fwk::Ptr<WriteResponseSm> writeResponseSmFactory(SwTable* swTable);

   SwTable* swTable() const noexcept { return swTable_; }
   // Whether acknowledgements are taken; off, every one is dropped.
   bool hasNotificationActive() const noexcept { return notificationActive_; }
   void hasNotificationActiveIs(bool active);

   // The hardware acknowledged the write of the key's row. True when a handle took it. `key`
   // points to a key of the table's key type (for the decap table an L3TunnelIntfKey, as
   // swKeyFromHwIndex gives it). Runs the handle's hooks before returning: the handle moves to
   // success, and at the end of a delete dance the row is deleted and the handle removed. The
   // chip plug-in delivers acknowledgements on the table's thread, never from inside a Util
   // operation.
   bool writeAcknowledged(const void* key);
   // Acknowledgements taken and dropped so far.
   std::uint64_t acknowledgements() const noexcept { return acknowledgements_; }
   std::uint64_t dropped() const noexcept { return dropped_; }

  private:
   explicit WriteResponseSm(SwTable* swTable) : swTable_(swTable) {}
   SwTable* swTable_;
   bool notificationActive_ = false;
   std::uint64_t acknowledgements_ = 0;
   std::uint64_t dropped_ = 0;
};

}  // namespace Asic
