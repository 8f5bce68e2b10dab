// The directory of named objects: lets a text form name an entity (an entry names the profile
// entry handle it needs) and lets the parser find it again. The directory does not hold its
// objects: an entity leaves it when it is destroyed.
#pragma once

#include <string>
#include <string_view>

#include "Fwk/Entity.h"

namespace Fwk {

class Directory {
  public:
   // Names an entity. A name already in use, an empty name, or a name with a character that the
   // text forms use as punctuation (blank, comma, braces, '=') is refused with
   // std::invalid_argument.
   static void objectIs(std::string_view name, Entity* entity);
   static void objectDel(std::string_view name);
   // The named entity, or null.
   static Ptr<Entity> object(std::string_view name);
   // The entity's name, or empty when it has none.
   static std::string nameOf(const Entity* entity);

  private:
   friend class Entity;
   static void entityGone(const Entity* entity) noexcept;
};

}  // namespace Fwk
