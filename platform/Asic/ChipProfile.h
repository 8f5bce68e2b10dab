// The chip profile in force: the features of the active chip, looked up by type.
#pragma once

#include <string>
#include <unordered_map>

#include "Asic/Feature.h"
#include "Fwk/TypeDescriptor.h"

namespace Asic {

class ChipProfile : public Fwk::Entity {
  public:
   static constexpr std::string_view kTypeName = "Asic::ChipProfile";

   // A profile without features; the platform adds them with featureIs.
   explicit ChipProfile(std::string name) : name_(std::move(name)) {}
   const std::string& name() const noexcept { return name_; }

   // The feature of that type, or null.
   Feature* feature(const Fwk::TypeDescriptor& type) const;
   // Adds or replaces the feature of that type (e.g. TalvikL3Unicast::L3NextHopAttributes, which
   // the decap table's allocator choice needs).
   void featureIs(const Fwk::TypeDescriptor& type, const Fwk::Ptr<Feature>& feature);

  private:
   std::string name_;
   std::unordered_map<const Fwk::TypeDescriptor*, Fwk::Ptr<Feature>> features_;
};

}  // namespace Asic
