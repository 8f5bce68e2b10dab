#include "TalvikL3Common/L3InterfaceSharedAllocator.h"

namespace TalvikL3Common {

namespace {
// The registry learns how to make the shared allocator when the library is loaded.
const bool registered = [] {
   Asic::GenericIndexAllocatorStub::factoryIs(
       Fwk::typeOf<L3InterfaceSharedAllocator>(),
       []() -> Fwk::Ptr<Asic::FirstFreeIndexAllocator> {
          return Fwk::make<L3InterfaceSharedAllocator>();
       });
   return true;
}();
}  // namespace

}  // namespace TalvikL3Common
