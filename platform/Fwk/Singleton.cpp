#include "Fwk/Singleton.h"

#include <mutex>
#include <unordered_map>

namespace Fwk {

namespace {
struct Registry {
   std::mutex mutex;
   std::unordered_map<std::string, Ptr<Entity>> byName;
};
// Leaked on purpose: singletons live until the process exits, after every static destructor.
Registry& registry() {
   static auto* r = new Registry;
   return *r;
}
}  // namespace

Ptr<Entity> Singletons::singleton(std::string_view name) {
   auto& r = registry();
   const std::lock_guard lock(r.mutex);
   const auto it = r.byName.find(std::string(name));
   return it == r.byName.end() ? nullptr : it->second;
}

Ptr<Entity> Singletons::singletonIs(std::string_view name, const Ptr<Entity>& entity) {
   auto& r = registry();
   const std::lock_guard lock(r.mutex);
   return r.byName.try_emplace(std::string(name), entity).first->second;
}

}  // namespace Fwk
