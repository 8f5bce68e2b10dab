// Table traits: all the engine knows of a table's key and entry, supplied by the table as a
// specialisation of Asic::TableTraits<Table> beside the table's own declaration. Most tables build
// it from the two helpers below:
//
//   template <>
//   struct Asic::TableTraits<MyTable>
//       : Asic::KeyTraits<MyKey>, Asic::NeededEntryField<&MyEntry::profile, &MyEntry::profileIndex>
//       {};
//
// What the traits supply (checked by SwTable::Accessor, concept TableTraitsOf below):
//   allocatorKey(key)             the key as the index allocator takes it (Asic::KeyRef)
//   keyAt(allocator, index)       the key of the table's type bound to an index, if any
//   neededHandle(entry)           the handle of the other table's entry the value needs (null:
//   none) dependentFieldIs(entry, i, checked)
//                                 writes that entry's hardware index `i` into the value's dependent
//                                 field; checked, an index wider than the field throws
//                                 std::range_error, else the field keeps the index's low bits
//   suggestion(row)               the needed table's index that a row read back names
//
// Everything else the engine needs of an entry is the entry's own: copying (assignment), whether
// a value is new (equality, which ignores the dependent field), the default value, and the text
// form of trace lines. A key needs equality, std::hash and a text form besides.
#pragma once

#include <array>
#include <concepts>
#include <cstddef>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>

#include "Asic/FirstFreeIndexAllocator.h"
#include "Asic/SwTableBase.h"
#include "Fwk/Ptr.h"

namespace Asic {

// Specialised by every table; deliberately left undefined here.
template <class Table>
struct TableTraits;

// A key the allocator and the change notifications can know by its bytes, of any width.
template <class K>
struct KeyTraits {
   using Key = K;
   static_assert(std::is_trivially_copyable_v<Key> && std::has_unique_object_representations_v<Key>,
                 "the index allocator and the change notifications store, compare and hash a key "
                 "by its bytes: a key type must be trivially copyable and have no padding bytes");

   static KeyRef allocatorKey(const Key& key) noexcept { return KeyRef::of(key); }
   static std::optional<Key> keyAt(const FirstFreeIndexAllocator& allocator, Index index) noexcept {
      return allocator.ownerKey<Key>(index);
   }
};

namespace Detail {

template <class T>
constexpr std::string_view unsignedTypeName() noexcept {
   if constexpr (std::is_same_v<T, unsigned char>) {
      return "unsigned char";
   } else if constexpr (std::is_same_v<T, unsigned short>) {
      return "unsigned short";
   } else {
      static_assert(std::is_same_v<T, unsigned int>, "an unsigned field of 8, 16 or 32 bits");
      return "unsigned int";
   }
}

// Checked narrowing of an unsigned value into a narrower unsigned field.
template <class To, class From>
To raise_cast_integral(From value) {
   if (value > std::numeric_limits<To>::max()) {
      throw std::range_error(
          "Casting values: cast from " + std::string(unsignedTypeName<From>()) + "{ " +
          std::to_string(value) + " } to " + std::string(unsignedTypeName<To>()) +
          " (max = " + std::to_string(std::numeric_limits<To>::max()) + ") failed.");
   }
   return static_cast<To>(value);
}

}  // namespace Detail

// A value that needs one entry of another table, held by the handle member `handle`, and carries
// that entry's hardware index in the unsigned member `field`.
template <auto handle, auto field>
struct NeededEntryField;

template <class E, class Field, Fwk::Ptr<const SwTableBase::EntryHandle> E::*handle,
          Field E::*field>
struct NeededEntryField<handle, field> {
   using Entry = E;
   static_assert(std::is_unsigned_v<Field> && sizeof(Field) <= sizeof(Index),
                 "the dependent field holds a hardware index, or its low bits");

   static const Fwk::Ptr<const SwTableBase::EntryHandle>& neededHandle(
       const Entry& entry) noexcept {
      return entry.*handle;
   }
   static void dependentFieldIs(Entry& entry, Index index, bool checked) {
      entry.*field =
          checked ? Detail::raise_cast_integral<Field, Index>(index) : static_cast<Field>(index);
   }
   static Index suggestion(const Entry& row) noexcept { return static_cast<Index>(row.*field); }
};

// What SwTable::Accessor requires of TableTraits<Table>.
template <class Traits, class Key, class Entry>
concept TableTraitsOf = requires(const Key& key, const FirstFreeIndexAllocator& allocator,
                                 const Entry& value, Entry& stored, Index index) {
   { Traits::allocatorKey(key) } -> std::same_as<KeyRef>;
   { Traits::keyAt(allocator, index) } -> std::same_as<std::optional<Key>>;
   { Traits::neededHandle(value) } -> std::same_as<const Fwk::Ptr<const SwTableBase::EntryHandle>&>;
   Traits::dependentFieldIs(stored, index, true);
   { Traits::suggestion(value) } -> std::same_as<Index>;
};

}  // namespace Asic
