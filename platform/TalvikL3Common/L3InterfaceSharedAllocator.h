// The index allocator that the L3 interface table shares with the tables whose indices live in
// the same hardware index space.
#pragma once

#include "Asic/FirstFreeIndexAllocator.h"

namespace TalvikL3Common {

class L3InterfaceSharedAllocator : public Asic::FirstFreeIndexAllocator {
  public:
   static constexpr std::string_view kTypeName = "L3InterfaceTableSharedAllocator";
   L3InterfaceSharedAllocator() : FirstFreeIndexAllocator("L3InterfaceSharedAllocator") {}
   const Fwk::TypeDescriptor& typeData() const override {
      return Fwk::typeOf<L3InterfaceSharedAllocator>();
   }
};

}  // namespace TalvikL3Common
