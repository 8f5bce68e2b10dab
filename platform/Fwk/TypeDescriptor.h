// Type descriptors: a run-time name for a type, used where the framework passes types as values
// (the allocator's keys, the recovery services, the shared-allocator registry, notifications).
// A type opts in with `static constexpr std::string_view kTypeName`. Key types of at most eight
// trivially copyable bytes also get their bits and their text form through the descriptor, so
// generic code can store and print a key it only knows by address.
#pragma once

#include <cstdint>
#include <cstring>
#include <ostream>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>

namespace Fwk {

class TypeDescriptor {
  public:
   using KeyTextFn = std::string (*)(std::uint64_t bits);

   // Registers the descriptor by name (find). `keySize` and `keyText` describe a small key type
   // (0 and null otherwise). Made once per type by typeOf<T>().
   TypeDescriptor(std::string_view name, std::size_t keySize, KeyTextFn keyText);
   TypeDescriptor(const TypeDescriptor&) = delete;
   TypeDescriptor& operator=(const TypeDescriptor&) = delete;

   const std::string& name() const noexcept { return name_; }
   // Bits of a key of this type (0 for types that are not small keys).
   std::uint64_t keyBits(const void* key) const noexcept {
      std::uint64_t v = 0;
      std::memcpy(&v, key, keySize_);
      return v;
   }
   // The text form of a key's bits: the key's own for a small key type, else the number.
   std::string keyText(std::uint64_t bits) const;

   // Finds a registered descriptor by name; null if no type of that name was described.
   static const TypeDescriptor* find(std::string_view name);

  private:
   std::string name_;
   std::size_t keySize_;
   KeyTextFn keyText_;
};

namespace Detail {
template <class T>
std::string keyTextOf(std::uint64_t bits) {
   T key;
   std::memcpy(static_cast<void*>(&key), &bits, sizeof(T));
   std::ostringstream os;
   os << key;
   return os.str();
}
}  // namespace Detail

// The one descriptor of T (cv-qualifiers ignored), named by T::kTypeName; made on first use.
template <class T>
const TypeDescriptor& typeOf() {
   using U = std::remove_cv_t<T>;
   constexpr bool smallKey = std::is_trivially_copyable_v<U> && sizeof(U) <= 8 &&
                             std::is_default_constructible_v<U> &&
                             requires(std::ostream& os, const U& k) { os << k; };
   if constexpr (!std::is_same_v<T, U>) {
      return typeOf<U>();  // one descriptor per type, however qualified
   } else if constexpr (smallKey) {
      static const TypeDescriptor d(U::kTypeName, sizeof(U), &Detail::keyTextOf<U>);
      return d;
   } else {
      static const TypeDescriptor d(U::kTypeName, 0, nullptr);
      return d;
   }
}

}  // namespace Fwk
