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

   // `name` must outlive the descriptor (a type's kTypeName does). `keySize` and `keyText`
   // describe a small key type (0 and null otherwise). Made once per type, see typeOf<T>().
   constexpr TypeDescriptor(std::string_view name, std::size_t keySize, KeyTextFn keyText) noexcept
       : name_(name), keySize_(keySize), keyText_(keyText) {}
   TypeDescriptor(const TypeDescriptor&) = delete;
   TypeDescriptor& operator=(const TypeDescriptor&) = delete;

   std::string_view name() const noexcept { return name_; }
   // Bits of a key of this type (0 for types that are not small keys).
   std::uint64_t keyBits(const void* key) const noexcept {
      std::uint64_t v = 0;
      std::memcpy(&v, key, keySize_);
      return v;
   }
   // The text form of a key's bits: the key's own for a small key type, else the number.
   std::string keyText(std::uint64_t bits) const;

   // Makes the descriptor findable by its name; true. Done once per type at load time.
   static bool registerByName(const TypeDescriptor& descriptor);
   // Finds a registered descriptor by name; null if no type of that name was described.
   static const TypeDescriptor* find(std::string_view name);

  private:
   std::string_view name_;
   std::size_t keySize_;
   KeyTextFn keyText_;
};

namespace Detail {
template <class T>
constexpr bool isSmallKey = std::is_trivially_copyable_v<T> && sizeof(T) <= 8 &&
                            std::is_default_constructible_v<T> &&
                            requires(std::ostream& os, const T& k) { os << k; };

template <class T>
std::string keyTextOf(std::uint64_t bits) {
   T key;
   std::memcpy(static_cast<void*>(&key), &bits, sizeof(T));
   std::ostringstream os;
   os << key;
   return os.str();
}

template <class T>
constexpr TypeDescriptor::KeyTextFn keyTextFnOf() noexcept {
   if constexpr (isSmallKey<T>) {
      return &keyTextOf<T>;
   } else {
      return nullptr;
   }
}

// Constant-initialised, so it is valid before any static initialiser runs and typeOf<T>() is
// an address, not a call guarding a local static. An inline variable has vague linkage: the
// dynamic linker binds every shared object's references to one instance per process.
template <class T>
inline constinit const TypeDescriptor descriptor{T::kTypeName, isSmallKey<T> ? sizeof(T) : 0,
                                                 keyTextFnOf<T>()};
template <class T>
inline const bool registeredByName = TypeDescriptor::registerByName(descriptor<T>);
}  // namespace Detail

// The one descriptor of T (cv-qualifiers ignored), named by T::kTypeName.
template <class T>
const TypeDescriptor& typeOf() noexcept {
   using U = std::remove_cv_t<T>;
   static_cast<void>(Detail::registeredByName<U>);  // instantiates the load-time registration
   return Detail::descriptor<U>;
}

}  // namespace Fwk
