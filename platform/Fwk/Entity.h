// Framework entities: reference-counted objects with a type description and a publisher.
#pragma once

#include <string>
#include <string_view>

#include "Fwk/Ptr.h"
#include "Fwk/Publisher.h"
#include "Fwk/TypeDescriptor.h"

namespace Fwk {

class Entity : public PtrInterface {
 public:
   static constexpr std::string_view kTypeName = "Fwk::Entity";

   // The entity's type descriptor; each concrete entity type returns its own.
   virtual const TypeDescriptor& typeData() const { return typeOf<Entity>(); }
   // Where observers register to be told of the entity's changes.
   Publisher& publisher() const noexcept { return publisher_; }
   // The framework's hook for a change of parent; nothing here uses it.
   virtual void handleParent(const Ptr<Entity>& /*parent*/) {}
   // The entity's one-line text form: its directory name if it has one, else its type name and
   // address.
   virtual std::string entityText() const;

   // Publishes a change of an attribute (`key` empty) or of one member of a collection. The
   // previous value's text is only built when someone observes.
   void notify(std::string_view attribute, ChangeKey key = {}) const {
      if (publisher_.hasObservers()) [[unlikely]] {
         publisher_.publish(Change{this, attribute, key, std::nullopt, {}});
      }
   }
   // Same for the member keyed by `key`, a key type: its ChangeKey too is only built when
   // someone observes.
   template <class K>
   void notify(std::string_view attribute, const K& key) const {
      if (publisher_.hasObservers()) [[unlikely]] {
         const TypeDescriptor& type = typeOf<K>();
         publisher_.publish(Change{this, attribute, ChangeKey::of(key), std::nullopt,
                                   type.wideKey() ? type.keyTextAt(&key) : std::string()});
      }
   }
   template <class PreviousText>
   void notifyWithPrevious(std::string_view attribute, ChangeKey key,
                           const PreviousText& previous) const {
      if (publisher_.hasObservers()) [[unlikely]] {
         publisher_.publish(
             Change{this, attribute, key, std::optional<std::string>(previous()), {}});
      }
   }

 protected:
   Entity() = default;
   ~Entity() override;

 private:
   friend class Directory;
   static constexpr std::uint8_t kNamedFlag = 1;
   mutable Publisher publisher_;
};

}  // namespace Fwk
