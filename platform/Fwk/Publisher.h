// Change publication: every entity has a publisher; observers (the framework's reactors) register
// with it and are told of each change of an attribute, or of a member of a collection attribute
// (named by its key, index or queue position). An entity with no observer pays one pointer test
// per change and builds nothing.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Fwk/TypeDescriptor.h"

namespace Fwk {

class Entity;

// Which member of a collection changed: its key's type and bits. `type` is null for a change of
// a plain attribute. The bits of a key wider than 64 bits are its hash (Fwk/TypeDescriptor.h);
// the change then carries the key's text form as well.
struct ChangeKey {
   const TypeDescriptor* type = nullptr;
   std::uint64_t bits = 0;

   // The key of a member keyed by `key`, a key type (Fwk/TypeDescriptor.h).
   template <class K>
   static ChangeKey of(const K& key) {
      const auto& t = typeOf<K>();
      return ChangeKey{&t, t.keyBits(&key)};
   }
   bool isEq(const ChangeKey& o) const noexcept { return type == o.type && bits == o.bits; }
   // The key's text form; empty for a plain attribute.
   std::string text() const { return type ? type->keyText(bits) : std::string(); }
};

struct Change {
   const Entity* entity = nullptr;
   std::string_view attribute;
   ChangeKey key;
   // Text form of the previous value, where the change carries one.
   std::optional<std::string> previous;
   // Text form of a key wider than 64 bits.
   std::string wideKeyText;

   // The changed member's key as text; empty for a plain attribute.
   std::string keyText() const {
      return key.type && key.type->wideKey() ? wideKeyText : key.text();
   }
};

class Observer {
 public:
   virtual ~Observer() = default;
   // Told of one change, synchronously, inside the operation that made it.
   virtual void onChange(const Change& change) = 0;
};

class Publisher {
 public:
   Publisher() = default;
   Publisher(const Publisher&) = delete;
   Publisher& operator=(const Publisher&) = delete;
   ~Publisher();

   bool hasObservers() const noexcept { return observers_ != nullptr && !observers_->empty(); }
   // Registers an observer once (not owned; it must unregister before it goes).
   void observerIs(Observer* o);
   void observerDel(Observer* o);
   // Tells every observer registered when the call began, in registration order. An observer
   // may unregister while being told.
   void publish(const Change& change) const;

 private:
   std::vector<Observer*>* observers_ = nullptr;
};

// Records every notification in order as "attribute" or "attribute[key]" (plus " was <previous>"
// when the change carries a previous value). For tests and diagnostics.
class RecordingObserver : public Observer {
 public:
   // Registers with the entity's publisher; unregisters when destroyed.
   explicit RecordingObserver(const Entity& entity);
   ~RecordingObserver() override;
   RecordingObserver(const RecordingObserver&) = delete;
   RecordingObserver& operator=(const RecordingObserver&) = delete;

   void onChange(const Change& change) override;
   const std::vector<std::string>& changes() const noexcept { return changes_; }
   void clear() noexcept { changes_.clear(); }

 private:
   const Entity* entity_;
   std::vector<std::string> changes_;
};

}  // namespace Fwk
