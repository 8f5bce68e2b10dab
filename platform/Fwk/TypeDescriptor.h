// Type descriptors: a run-time name for a type, used where the framework passes types as values
// (the allocator's keys, the recovery services, the shared-allocator registry, notifications).
// A type opts in with `static constexpr std::string_view kTypeName`. Key types (trivially
// copyable and printable; wider than 64 bits, also without padding) also get their size, bits and
// text form through the descriptor, so generic code can store, compare and print a key it only
// knows by address. A key of at most 64 bits is its bits; a wider key is known by its bytes, and
// its bits are their hash.
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
   using WideKeyTextFn = std::string (*)(const void* key);

   // `name` must outlive the descriptor (a type's kTypeName does). `keySize` and `keyText`
   // describe a key type of at most 64 bits (0 and null for types that are not keys); a wider key
   // type gives `wideKeyText` instead. Made once per type, see typeOf<T>().
   constexpr TypeDescriptor(std::string_view name, std::size_t keySize, KeyTextFn keyText,
                            WideKeyTextFn wideKeyText = nullptr) noexcept
       : name_(name), keySize_(keySize), keyText_(keyText), wideKeyText_(wideKeyText) {}
   TypeDescriptor(const TypeDescriptor&) = delete;
   TypeDescriptor& operator=(const TypeDescriptor&) = delete;

   std::string_view name() const noexcept { return name_; }
   // Bytes of a key of this type (0 for types that are not keys).
   std::size_t keySize() const noexcept { return keySize_; }
   // Whether keys of this type are wider than 64 bits.
   bool wideKey() const noexcept { return keySize_ > sizeof(std::uint64_t); }
   // Bits of a key of this type: a key of at most 64 bits as it is (0 for types that are not
   // keys), a wider key's hash.
   std::uint64_t keyBits(const void* key) const noexcept {
      if (wideKey()) [[unlikely]] {
         return hashBytes(key, keySize_);
      }
      std::uint64_t v = 0;
      std::memcpy(&v, key, keySize_);
      return v;
   }
   // The text form of a key's bits: the key's own for a key of at most 64 bits, else the number.
   std::string keyText(std::uint64_t bits) const;
   // The text form of a key of this type given by address.
   std::string keyTextAt(const void* key) const;
   // The hash of a wide key's bytes.
   static std::uint64_t hashBytes(const void* bytes, std::size_t size) noexcept;

   // Makes the descriptor findable by its name; true. Done once per type at load time.
   static bool registerByName(const TypeDescriptor& descriptor);
   // Finds a registered descriptor by name; null if no type of that name was described.
   static const TypeDescriptor* find(std::string_view name);

 private:
   std::string_view name_;
   std::size_t keySize_;
   KeyTextFn keyText_;
   WideKeyTextFn wideKeyText_;
};

namespace Detail {
template <class T>
constexpr bool isPrintableValue = std::is_trivially_copyable_v<T>&&
    std::is_default_constructible_v<T>&& requires(std::ostream& os, const T& k) {
   os << k;
};
template <class T>
constexpr bool isSmallKey = isPrintableValue<T> && sizeof(T) <= sizeof(std::uint64_t);
// A wider key is compared and hashed by its bytes, so padding bytes would make equal keys differ.
template <class T>
constexpr bool isWideKey =
    isPrintableValue<T> &&
    sizeof(T) > sizeof(std::uint64_t) && std::has_unique_object_representations_v<T>;
template <class T>
constexpr bool isKey = isSmallKey<T> || isWideKey<T>;

template <class T>
std::string wideKeyTextOf(const void* key) {
   std::ostringstream os;
   os << *static_cast<const T*>(key);
   return os.str();
}

template <class T>
std::string keyTextOf(std::uint64_t bits) {
   T key;
   std::memcpy(static_cast<void*>(&key), &bits, sizeof(T));
   return wideKeyTextOf<T>(&key);
}

template <class T>
constexpr TypeDescriptor::KeyTextFn keyTextFnOf() noexcept {
   if constexpr (isSmallKey<T>) {
      return &keyTextOf<T>;
   } else {
      return nullptr;
   }
}

template <class T>
constexpr TypeDescriptor::WideKeyTextFn wideKeyTextFnOf() noexcept {
   if constexpr (isWideKey<T>) {
      return &wideKeyTextOf<T>;
   } else {
      return nullptr;
   }
}

// Constant-initialised, so it is valid before any static initialiser runs and typeOf<T>() is
// an address, not a call guarding a local static. An inline variable has vague linkage: the
// dynamic linker binds every shared object's references to one instance per process.
template <class T>
inline constinit const TypeDescriptor descriptor{T::kTypeName, isKey<T> ? sizeof(T) : 0,
                                                 keyTextFnOf<T>(), wideKeyTextFnOf<T>()};
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
