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

std::string TypeDescriptor::keyTextAt(const void* key) const {
   return wideKeyText_ ? wideKeyText_(key) : keyText(keyBits(key));
}

std::uint64_t TypeDescriptor::hashBytes(const void* bytes, std::size_t size) noexcept {
   // FNV-1a, then a final mix so that keys differing in any byte spread over the whole word.
   std::uint64_t h = 0xcbf29ce484222325ULL;
   const auto* p = static_cast<const unsigned char*>(bytes);
   for (std::size_t i = 0; i < size; ++i) {
      h = (h ^ p[i]) * 0x100000001b3ULL;
   }
   h = (h ^ (h >> 33)) * 0xff51afd7ed558ccdULL;
   return h ^ (h >> 33);
}

const TypeDescriptor* TypeDescriptor::find(std::string_view name) {
   auto& r = registry();
   const std::lock_guard lock(r.mutex);
   const auto it = r.byName.find(name);
   return it == r.byName.end() ? nullptr : it->second;
}

}  // namespace Fwk
