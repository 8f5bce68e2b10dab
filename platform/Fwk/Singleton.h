// Singleton entities by name: one entity per name for the life of the process.
#pragma once

#include <string>
#include <string_view>

#include "Fwk/Entity.h"

namespace Fwk {

struct Singletons {
   // The singleton of that name, or null.
   static Ptr<Entity> singleton(std::string_view name);
   // Registers `entity` as the singleton of that name unless one exists; returns the one in force.
   static Ptr<Entity> singletonIs(std::string_view name, const Ptr<Entity>& entity);
};

// The singleton of type T named `name`, constructing T(name) when there is none yet.
template <class T>
Ptr<T> singletonIs(std::string_view name) {
   if (Ptr<Entity> existing = Singletons::singleton(name)) {
      return ptr_cast<T>(existing);
   }
   return ptr_cast<T>(Singletons::singletonIs(name, make<T>(std::string(name))));
}

}  // namespace Fwk
