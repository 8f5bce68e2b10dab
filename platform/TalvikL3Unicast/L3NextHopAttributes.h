// Next-hop attributes of a chip: whether tunnel incoming interfaces get an index space of their
// own or share the L3 interface table's.
#pragma once

#include "Asic/Feature.h"

namespace TalvikL3Unicast {

class L3NextHopAttributes : public Asic::Feature {
  public:
   static constexpr std::string_view kTypeName = "TalvikL3Unicast::L3NextHopAttributes";

   explicit L3NextHopAttributes(bool separateIifIndexSpace)
       : Feature("L3NextHopAttributes"), separateIifIndexSpace_(separateIifIndexSpace) {}
   const Fwk::TypeDescriptor& typeData() const override {
      return Fwk::typeOf<L3NextHopAttributes>();
   }
   bool separateIifIndexSpace() const noexcept { return separateIifIndexSpace_; }

  private:
   bool separateIifIndexSpace_;
};

}  // namespace TalvikL3Unicast
