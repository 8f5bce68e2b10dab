#include "Asic/Recovery.h"

#include <mutex>

#include "Asic/SwTable.h"
#include "Vosk/StateDb.h"

namespace Asic {

namespace {
struct Log {
   std::mutex mutex;
   std::vector<RecoveryRequest> requests;
};
Log& log() {
   static Log l;
   return l;
}
}  // namespace

std::vector<RecoveryRequest> RecoveryLog::requests() {
   auto& l = log();
   const std::lock_guard lock(l.mutex);
   return l.requests;
}

void RecoveryLog::clear() {
   auto& l = log();
   const std::lock_guard lock(l.mutex);
   l.requests.clear();
}

void RecoveryLog::requestIs(RecoveryRequest request) {
   auto& l = log();
   const std::lock_guard lock(l.mutex);
   l.requests.push_back(std::move(request));
}

void SwTable::Util::doRecoverHwTable(const Fwk::TypeDescriptor& type,
                                     const Fwk::Ptr<HwTableRecoverGroup>& rg, UnitId unitId,
                                     const Fwk::Ptr<Vosk::EntityManager>& em,
                                     const ChipInfo& chipInfo, const std::string& name) {
   RecoveryLog::requestIs(RecoveryRequest{RecoveryRequest::recoverHwTable, &type, name,
                                          rg ? rg->name() : std::string(), unitId,
                                          em ? em->name() : std::string(), chipInfo.chipName});
}

void SwTable::Util::doMountHwTableMountInfo(const Fwk::TypeDescriptor& type,
                                            const Fwk::Ptr<Vosk::MountGroup>& mg,
                                            const std::string& name) {
   RecoveryLog::requestIs(RecoveryRequest{RecoveryRequest::mountInfo, &type, name,
                                          mg ? mg->name() : std::string(), 0, {}, {}});
}

void SwTable::Util::doMountHwTableRecoveryStatus(const Fwk::TypeDescriptor& type,
                                                 const Fwk::Ptr<Vosk::MountGroup>& mg,
                                                 const std::string& name) {
   RecoveryLog::requestIs(RecoveryRequest{RecoveryRequest::recoveryStatus, &type, name,
                                          mg ? mg->name() : std::string(), 0, {}, {}});
}

}  // namespace Asic
