// Index allocators: hand out hardware row indices to keys, lowest free index first.
//
// Keys are identified by their type descriptor and their bits, so one allocator can serve keys
// of several tables (the allocator shared by the L3 interface table and the tunnel IIF table).
//
// After a restart the platform tells the allocator which rows were read back from hardware
// (`heldBackIs`). The rule: an index that holds a read-back row is never handed to another key
// until that row is claimed by its key (`heldBackDel`, when reconciliation retires the row) or
// purged (`indexAvailableIs`). The hold is a mark of its own, apart from the binding: binding a
// key to a held-back index (`recoverIndexForKey`) keeps the hold, and unbinding the key (released,
// removed, never resolved) leaves the index held back, not free. So an entry programmed as new
// never lands on a row that the purge of stale rows will delete, whatever happens meanwhile to a
// key bound to it.
//
// Free-index search keeps a bitmap of used words plus a summary bitmap of full words, and starts
// at the lowest summary word that is not full, so the lowest free index is found in a few word
// scans even at a million indices.
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Asic/Types.h"
#include "Fwk/Entity.h"
#include "Fwk/ProbedTable.h"

namespace Asic {

class SwTable;

// A key as the allocator knows it: its type and its bits (Fwk::TypeDescriptor::keyBits). A key
// wider than 64 bits is known by its bytes too: its bits are their hash.
struct GenericKey {
   GenericKey() = default;
   GenericKey(const Fwk::TypeDescriptor* keyType, std::uint64_t keyBits,
              std::vector<std::byte> wideBytes = {})
       : type(keyType), bits(keyBits), wide(std::move(wideBytes)) {}

   const Fwk::TypeDescriptor* type = nullptr;
   std::uint64_t bits = 0;
   std::vector<std::byte> wide;  // a wider key's bytes; empty otherwise

   bool operator==(const GenericKey&) const = default;
   // The key's text form ("none" for no key).
   std::string text() const {
      return type == nullptr   ? std::string("none")
             : type->wideKey() ? type->keyTextAt(wide.data())
                               : type->keyText(bits);
   }
};

// The key an allocator operation is about, borrowed from its caller for the call: its type, its
// bits, and the bytes of a key wider than 64 bits.
struct KeyRef {
   const Fwk::TypeDescriptor* type;
   std::uint64_t bits;
   const void* wide;  // null for a key of at most 64 bits

   template <class K>
   static KeyRef of(const K& key) noexcept {
      const Fwk::TypeDescriptor& t = Fwk::typeOf<K>();
      if constexpr (sizeof(K) <= sizeof(std::uint64_t)) {
         std::uint64_t bits = 0;
         std::memcpy(&bits, &key, sizeof(K));
         return KeyRef{&t, bits, nullptr};
      } else {
         return KeyRef{&t, t.keyBits(&key), &key};
      }
   }
   // A key of a described type given by address.
   static KeyRef at(const Fwk::TypeDescriptor& type, const void* key) noexcept {
      return KeyRef{&type, type.keyBits(key), type.wideKey() ? key : nullptr};
   }
};

class FirstFreeIndexAllocator : public Fwk::Entity {
 public:
   static constexpr std::string_view kTypeName = "Asic::FirstFreeIndexAllocator";

   // An allocator with no index yet (numIndicesIs sizes it).
   explicit FirstFreeIndexAllocator(std::string name);
   const Fwk::TypeDescriptor& typeData() const override {
      return Fwk::typeOf<FirstFreeIndexAllocator>();
   }
   const std::string& name() const noexcept { return name_; }

   std::uint32_t numIndices() const noexcept { return numIndices_; }
   // Sizes the index space. Shrinking below an index in use or held back keeps that index
   // reachable until it is released.
   void numIndicesIs(std::uint32_t n);
   // Set once the owning table has sized it (doInitAllocator).
   bool initialized() const noexcept { return initialized_; }
   void initializedIs(bool initialized) noexcept { initialized_ = initialized; }

   // Keys come as a KeyRef, or as the address of a key of a described type.
   //
   // The key's index: the one bound to it, else the lowest free one (now bound to the key), else
   // the invalid index.
   Index indexAcquire(const KeyRef& key);
   Index indexAcquire(const Fwk::TypeDescriptor& type, const void* key) {
      return indexAcquire(KeyRef::at(type, key));
   }
   // The index bound to the key, or the invalid index.
   Index index(const KeyRef& key) const;
   Index index(const Fwk::TypeDescriptor& type, const void* key) const {
      return index(KeyRef::at(type, key));
   }
   // The key bound to an index, whatever its type; empty when no key holds it.
   std::optional<GenericKey> owner(Index index) const;
   // The key bound to an index when it is a K.
   template <class K>
   std::optional<K> ownerKey(Index index) const noexcept;
   // Unbinds the key's index (nothing if it holds none).
   void indexRelease(const KeyRef& key);
   void indexRelease(const Fwk::TypeDescriptor& type, const void* key) {
      indexRelease(KeyRef::at(type, key));
   }

   // Restart: binds `index` to the key. True when the index is now bound to the key (it was
   // free or held back, or already bound to the key); false when another key holds it.
   bool recoverIndexForKey(Index index, const KeyRef& key);
   bool recoverIndexForKey(Index index, const Fwk::TypeDescriptor& type, const void* key) {
      return recoverIndexForKey(index, KeyRef::at(type, key));
   }
   // Holds a read-back row's index back from free-index search until it is claimed or made
   // available. An index outside the index space, or bound already, is not the allocator's to
   // hold.
   void heldBackIs(Index index);
   bool heldBack(Index index) const noexcept;
   // The read-back row at the index was claimed by its key: the hold ends; the index stays
   // taken while a key is bound to it. Nothing happens to an index that is not held back.
   void heldBackDel(Index index) noexcept;
   // The availability query: true when no key holds the index and it is not held back.
   bool indexAvailable(Index index) const noexcept;
   // The second index query: true when the index lies in this allocator's index space. A stale
   // row at an index the allocator does not manage is not the table's to delete.
   bool indexManaged(Index index) const noexcept { return index < numIndices_; }
   // The make-available operation (the purge of a stale row): unbinds whatever key holds the
   // index and ends any hold-back.
   void indexAvailableIs(Index index);

   // The indices bound to keys of one type, ascending.
   std::vector<Index> indicesBoundTo(const Fwk::TypeDescriptor& type) const;

   // Indices bound to keys, and indices held back, now.
   std::uint32_t totalUsedIndices() const noexcept { return used_; }
   std::uint32_t heldBackIndices() const noexcept { return heldBackCount_; }

   // Tables that draw their indices from this allocator through the shared-allocator registry.
   bool hasTable(const SwTable* table) const noexcept;
   void tableIs(const SwTable* table);
   void tableDel(const SwTable* table) noexcept;
   std::size_t tables() const noexcept { return tables_.size(); }

 protected:
   ~FirstFreeIndexAllocator() override;

 private:
   bool bitSet(const std::vector<std::uint64_t>& bits, Index i) const noexcept;
   void markTaken(Index i) noexcept;
   void markFree(Index i) noexcept;
   Index lowestFree() const noexcept;
   // The number standing for a key type in this allocator (from 1), or kNoKeyType for a type it
   // has never bound; keyTypeNumberIs also gives a new type its number.
   std::uint32_t keyTypeNumber(const Fwk::TypeDescriptor& type) const noexcept;
   std::uint32_t keyTypeNumberIs(const Fwk::TypeDescriptor& type);

   // Key-type numbers start at 1; 0 stands for no key (an index without owner).
   static constexpr std::uint32_t kNoKeyType = 0;
   // A key by its type's number in this allocator, its bits and, for a key wider than 64 bits,
   // its bytes (borrowed).
   struct OwnerKey {
      std::uint32_t type;
      std::uint64_t bits;
      const void* wide = nullptr;
   };
   OwnerKey ownerKeyOf(std::uint32_t type, const KeyRef& key) const noexcept {
      return OwnerKey{type, key.bits, key.wide};
   }
   // The key bound to index i, its bytes where the allocator keeps them.
   OwnerKey ownerKeyAt(Index i) const noexcept {
      return OwnerKey{ownerTypes_[i], ownerBits_[i], wideKeyAt(ownerTypes_[i], i)};
   }
   bool ownedBy(Index i, const OwnerKey& key) const noexcept {
      return ownerTypes_[i] == key.type && ownerBits_[i] == key.bits &&
             (key.wide == nullptr || sameWideKey(i, key));
   }
   bool sameWideKey(Index i, const OwnerKey& key) const noexcept;
   // Where the bytes of the wide key bound to index i are kept (null for a narrower key type).
   const std::byte* wideKeyAt(std::uint32_t type, Index i) const noexcept;
   void bind(Index i, const OwnerKey& key);
   void unbind(Index i) noexcept;

   // The index by key. A slot holds a bound index and the top half of its key's hash: the key is
   // in the owner arrays already, which a probe reads only for the slot that is almost surely the
   // key's (8 B a slot instead of the 16 B of a copy of the key).
   struct ByKeyTraits {
      struct Slot {
         Index index = kInvalidIndex;
         std::uint32_t hashTop = 0;
      };
      using Key = OwnerKey;
      static bool occupied(const Slot& slot) noexcept { return slot.index != kInvalidIndex; }
      // Only the top half counts, so that a slot's hash is known without reading its key.
      static std::uint64_t hash(const Key& key) noexcept {
         return Fwk::probeMix(key.bits + key.type * 0x9e3779b97f4a7c15ULL) & ~0xffffffffULL;
      }
      static std::uint64_t hashOf(const Slot& slot) noexcept {
         return std::uint64_t{slot.hashTop} << 32;
      }
      bool holds(const Slot& slot, const Key& key, std::uint64_t hash) const noexcept {
         return slot.hashTop == (hash >> 32) && allocator->ownedBy(slot.index, key);
      }
      const FirstFreeIndexAllocator* allocator;
   };
   // The index bound to the key, or the invalid index.
   Index boundIndex(const OwnerKey& key) const;

   std::string name_;
   std::uint32_t numIndices_ = 0;
   bool initialized_ = false;
   std::uint32_t used_ = 0;
   std::uint32_t heldBackCount_ = 0;
   std::vector<std::uint64_t> taken_;      // bound, held back, or both
   std::vector<std::uint64_t> fullWords_;  // summary: bit w set when taken_[w] is all ones
   std::size_t firstOpenSummary_ = 0;      // no summary word below it has a free word
   std::vector<std::uint64_t> heldBack_;
   // The key bound to each index: its type's number (kNoKeyType: none) and its bits, 12 B an index.
   std::vector<std::uint32_t> ownerTypes_;
   std::vector<std::uint64_t> ownerBits_;
   std::vector<const Fwk::TypeDescriptor*> keyTypes_;  // by number, from 1
   // The bytes of the wide keys bound to each index, by key-type number (from 1; empty for
   // narrower key types): keySize() bytes an index, grown to the highest index bound.
   std::vector<std::vector<std::byte>> wideKeys_;
   Fwk::ProbedTable<ByKeyTraits> byKey_{ByKeyTraits{this}};
   std::vector<const SwTable*> tables_;
};

template <class K>
std::optional<K> FirstFreeIndexAllocator::ownerKey(Index index) const noexcept {
   const std::uint32_t type = index < ownerTypes_.size() ? ownerTypes_[index] : kNoKeyType;
   if (type == kNoKeyType || keyTypes_[type - 1] != &Fwk::typeOf<K>()) {
      return std::nullopt;
   }
   std::array<std::byte, sizeof(K)> bytes;
   if constexpr (sizeof(K) <= sizeof(std::uint64_t)) {
      std::memcpy(bytes.data(), &ownerBits_[index], sizeof(K));
   } else {
      std::memcpy(bytes.data(), wideKeyAt(type, index), sizeof(K));
   }
   return std::bit_cast<K>(bytes);
}

// Releases the key's index (the generic allocator operation the engine calls by name).
struct GenericIndexAllocator {
   static void releaseIndexFromTable(FirstFreeIndexAllocator& allocator, const KeyRef& key,
                                     const SwTable* table);
   static void releaseIndexFromTable(FirstFreeIndexAllocator& allocator,
                                     const Fwk::TypeDescriptor& keyType, const void* key,
                                     const SwTable* table) {
      releaseIndexFromTable(allocator, KeyRef::at(keyType, key), table);
   }
};

// The registry of shared allocators: one allocator per allocator type, handed to every table that
// asks for it and recorded as used by that table.
struct GenericIndexAllocatorStub {
   // Returns the shared allocator of `allocatorType`, creating it on first request. Throws
   // std::invalid_argument for an allocator type that no factory makes.
   static Fwk::Ptr<FirstFreeIndexAllocator> createSharedAllocator(
       const Fwk::TypeDescriptor& tableType, const Fwk::TypeDescriptor& allocatorType,
       SwTable* table);
   // Gives the table's use back; the registry drops the allocator when no table uses it.
   static void freeSharedAllocator(const Fwk::TypeDescriptor& tableType,
                                   const Fwk::TypeDescriptor& allocatorType, SwTable* table);
   // Registers how allocators of a type are made.
   using Factory = Fwk::Ptr<FirstFreeIndexAllocator> (*)();
   static void factoryIs(const Fwk::TypeDescriptor& allocatorType, Factory factory);
   // The registered shared allocator of a type, or null.
   static Fwk::Ptr<FirstFreeIndexAllocator> sharedAllocator(
       const Fwk::TypeDescriptor& allocatorType);
};

}  // namespace Asic
