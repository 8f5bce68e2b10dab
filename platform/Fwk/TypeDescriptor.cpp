#include "Fwk/TypeDescriptor.h"

#include <mutex>
#include <unordered_map>

namespace Fwk {

namespace {
struct Registry {
   std::mutex mutex;
   std::unordered_map<std::string_view, const TypeDescriptor*> byName;
};
Registry& registry() {
   static Registry r;
   return r;
}
}  // namespace

bool TypeDescriptor::registerByName(const TypeDescriptor& descriptor) {
   auto& r = registry();
   const std::lock_guard lock(r.mutex);
   r.byName.emplace(descriptor.name_, &descriptor);
   return true;
}

std::string TypeDescriptor::keyText(std::uint64_t bits) const {
   return keyText_ ? keyText_(bits) : std::to_string(bits);
}

const TypeDescriptor* TypeDescriptor::find(std::string_view name) {
   auto& r = registry();
   const std::lock_guard lock(r.mutex);
   const auto it = r.byName.find(name);
   return it == r.byName.end() ? nullptr : it->second;
}

}  // namespace Fwk
