// Chip features: named framework entities that a chip profile or a table holds (a table's Util,
// the next-hop attributes of a chip profile).
#pragma once

#include <string>

#include "Fwk/Entity.h"

namespace Asic {

class Feature : public Fwk::Entity {
  public:
   static constexpr std::string_view kTypeName = "Asic::Feature";
   const Fwk::TypeDescriptor& typeData() const override { return Fwk::typeOf<Feature>(); }
   // The name given at construction (a Util's: the chip plug-in's name for it).
   const std::string& featureName() const noexcept { return name_; }

  protected:
   explicit Feature(std::string name) : name_(std::move(name)) {}
   ~Feature() override { underDestructionIs(); }

  private:
   std::string name_;
};

}  // namespace Asic
