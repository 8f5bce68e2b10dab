#include "Asic/ChipProfile.h"

namespace Asic {

Feature* ChipProfile::feature(const Fwk::TypeDescriptor& type) const {
   const auto it = features_.find(&type);
   return it == features_.end() ? nullptr : it->second.get();
}

void ChipProfile::featureIs(const Fwk::TypeDescriptor& type, const Fwk::Ptr<Feature>& feature) {
   features_[&type] = feature;
}

}  // namespace Asic
