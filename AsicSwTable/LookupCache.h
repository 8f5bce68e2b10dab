// One table operation looks the same key up many times: the last key looked up is remembered
// with where its entry handle's slot and its resolved entry are (null: absent; unknown until
// looked up). A mutator of either collection tells the cache where the key it changed is now,
// which forgets any other key: a slot's address holds only until the next insert or erase.
//
// The cache is right only while every mutator does so. Builds with FWK_DEBUG_ASSERT on (those
// without NDEBUG: debug and the sanitizers) look every remembered member up again and stop when
// the two disagree.
#pragma once

#include "Fwk/Assert.h"

namespace Asic {

template <class Key, class HandleSlot, class Resolved>
class LookupCache {
 public:
   // The key's handle slot (null: absent); `find` looks it up when the cache does not know.
   template <class Find>
   const HandleSlot* handle(const Key& key, const Find& find) {
      return lookUp(cacheFor(key).handle, find);
   }
   // The key's resolved entry (null: absent), likewise.
   template <class Find>
   const Resolved* resolved(const Key& key, const Find& find) {
      return lookUp(cacheFor(key).resolved, find);
   }
   // A mutator put the key's handle or resolved entry at `at` (null: removed it).
   void handleIs(const Key& key, const HandleSlot* at) { cacheFor(key).handle = {true, at}; }
   void resolvedIs(const Key& key, const Resolved* at) { cacheFor(key).resolved = {true, at}; }
   void clear() noexcept { cache_ = {}; }

 private:
   template <class T>
   struct Remembered {
      bool known = false;
      const T* at = nullptr;
   };
   struct Cache {
      Key key{};
      Remembered<HandleSlot> handle;
      Remembered<Resolved> resolved;
   };

   // The cache, emptied first when it remembers another key.
   Cache& cacheFor(const Key& key) {
      if (!(cache_.key == key)) {
         cache_ = Cache{.key = key, .handle = {}, .resolved = {}};
      }
      return cache_;
   }
   template <class T, class Find>
   static const T* lookUp(Remembered<T>& remembered, const Find& find) {
      if (!remembered.known) {
         remembered = {true, find()};
      }
      FWK_DEBUG_ASSERT(remembered.at == find(), "the lookup cache agrees with the collections");
      return remembered.at;
   }

   Cache cache_;
};

}  // namespace Asic
