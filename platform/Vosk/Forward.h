// The state database's classes that hardware-table headers name without needing their definitions
// (Vosk/StateDb.h defines them).
#pragma once

namespace Vosk {
class MountGroup;
class EntityManager;
}  // namespace Vosk
