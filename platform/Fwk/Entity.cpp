#include "Fwk/Entity.h"

#include <cstdio>

#include "Fwk/Directory.h"

namespace Fwk {

Entity::~Entity() {
   if (fwkFlags_ & kNamedFlag) {
      Directory::entityGone(this);
   }
}

std::string Entity::entityText() const {
   std::string name = Directory::nameOf(this);
   if (!name.empty()) {
      return name;
   }
   char address[2 + 16 + 1];
   std::snprintf(address, sizeof address, "%p", static_cast<const void*>(this));
   return std::string(typeData().name()) + "@" + address;
}

}  // namespace Fwk
