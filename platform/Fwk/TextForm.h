// The framework's value-to-text conventions and the reader for them. A record prints as
//   Type{attr=value, attr=value}
// with ", " between attributes. Object references print as the referenced object's directory
// name, or "null". Numbers print in decimal, booleans as "true" and "false".
#pragma once

#include <cstdint>
#include <limits>
#include <string>
#include <string_view>

#include "Fwk/Entity.h"

namespace Fwk {

// A cursor over text being parsed. Errors name what was expected and the offset from the start.
class CharRange {
  public:
   // A cursor at the start of `text`, which must outlive it.
   explicit CharRange(std::string_view text) noexcept : text_(text) {}

   // Where the cursor is, whether it is at the end, and the text not read yet.
   std::size_t offset() const noexcept { return pos_; }
   bool atEnd() const noexcept { return pos_ >= text_.size(); }
   std::string_view rest() const noexcept { return text_.substr(pos_); }

   // The record-opening step: "Type{firstAttr=".
   void recordOpen(std::string_view type, std::string_view firstAttribute);
   // The attribute separator and the attribute's name: ", name=".
   void attribute(std::string_view name);
   void recordClose();

   // Reads a decimal number of at most `max` (ParseError otherwise); unsignedAs reads one that
   // fits T.
   std::uint64_t unsignedNumber(std::uint64_t max);
   template <class T>
   T unsignedAs() {
      return static_cast<T>(unsignedNumber(std::numeric_limits<T>::max()));
   }
   // Reads "true" or "false".
   bool boolean();
   // A reference to a named object: null for "null", else the directory's object of that name
   // (a name that no object has is an error).
   Ptr<Entity> objectRef();

   // Throws ParseError: "expected <expected> at offset <n>, found '<text there>'".
   [[noreturn]] void fail(const std::string& expected) const;

  private:
   void literal(std::string_view expected);
   std::string_view text_;
   std::size_t pos_ = 0;
};

// Text form of an object reference, as objectRef() reads it.
std::string objectRefText(const Entity* entity);

}  // namespace Fwk
