#include "Fwk/Directory.h"

#include <mutex>
#include <stdexcept>
#include <unordered_map>

namespace Fwk {

namespace {
struct Names {
   std::mutex mutex;
   std::unordered_map<std::string, Entity*> byName;
   std::unordered_map<const Entity*, std::string> byEntity;
};
Names& names() {
   static Names n;
   return n;
}

bool validName(std::string_view name) {
   return !name.empty() && name.find_first_of(" \t\n,{}=") == std::string_view::npos &&
          name != "null";
}
}  // namespace

void Directory::objectIs(std::string_view name, Entity* entity) {
   if (!validName(name)) {
      throw std::invalid_argument("directory: invalid object name '" + std::string(name) + "'");
   }
   auto& n = names();
   const std::lock_guard lock(n.mutex);
   if (n.byName.contains(std::string(name))) {
      throw std::invalid_argument("directory: name '" + std::string(name) + "' is in use");
   }
   if (auto it = n.byEntity.find(entity); it != n.byEntity.end()) {
      n.byName.erase(it->second);
      n.byEntity.erase(it);
   }
   n.byName.emplace(name, entity);
   n.byEntity.emplace(entity, name);
   entity->fwkFlags_ |= Entity::kNamedFlag;
}

void Directory::objectDel(std::string_view name) {
   auto& n = names();
   const std::lock_guard lock(n.mutex);
   const auto it = n.byName.find(std::string(name));
   if (it == n.byName.end()) {
      return;
   }
   it->second->fwkFlags_ &= static_cast<std::uint8_t>(~Entity::kNamedFlag);
   n.byEntity.erase(it->second);
   n.byName.erase(it);
}

Ptr<Entity> Directory::object(std::string_view name) {
   auto& n = names();
   const std::lock_guard lock(n.mutex);
   const auto it = n.byName.find(std::string(name));
   return it == n.byName.end() ? nullptr : Ptr<Entity>(it->second);
}

std::string Directory::nameOf(const Entity* entity) {
   if (!entity || !(entity->fwkFlags_ & Entity::kNamedFlag)) {
      return {};
   }
   auto& n = names();
   const std::lock_guard lock(n.mutex);
   const auto it = n.byEntity.find(entity);
   return it == n.byEntity.end() ? std::string() : it->second;
}

void Directory::entityGone(const Entity* entity) noexcept {
   auto& n = names();
   const std::lock_guard lock(n.mutex);
   if (auto it = n.byEntity.find(entity); it != n.byEntity.end()) {
      n.byName.erase(it->second);
      n.byEntity.erase(it);
   }
}

}  // namespace Fwk
