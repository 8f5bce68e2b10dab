// Hardware-table recovery after an agent restart: the groups the platform recovers tables in,
// the chip they run on, and the record of what the recovery services were asked to do. The
// services record each request (type, arguments) so that the agent and tests can see which
// tables asked for recovery and with what; reading rows back is the chip plug-in's job
// (its Util's syncEntries).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Asic/Types.h"
#include "Fwk/Entity.h"
#include "Vosk/Forward.h"

namespace Asic {

struct ChipInfo {
   std::string chipName;
   std::uint32_t revision = 0;
};

class HwTableRecoverGroup : public Fwk::Entity {
 public:
   static constexpr std::string_view kTypeName = "Asic::HwTableRecoverGroup";
   explicit HwTableRecoverGroup(std::string name) : name_(std::move(name)) {}
   const std::string& name() const noexcept { return name_; }

 private:
   std::string name_;
};

// One request made of the recovery services.
struct RecoveryRequest {
   enum Kind : std::uint8_t { recoverHwTable, mountInfo, recoveryStatus };
   Kind kind;
   const Fwk::TypeDescriptor* type;
   std::string name;
   std::string group;  // recover group or mount group name
   UnitId unitId = 0;
   std::string entityManager;
   std::string chipName;
};

// The process's record of recovery requests (thread-safe).
struct RecoveryLog {
   // Every request so far, in order.
   static std::vector<RecoveryRequest> requests();
   static void clear();
   // Records one request (the recovery services of SwTable::Util call it).
   static void requestIs(RecoveryRequest request);
};

}  // namespace Asic
