#include "Fwk/TextForm.h"

#include "Fwk/Directory.h"
#include "Fwk/Errors.h"

namespace Fwk {

void CharRange::fail(const std::string& expected) const {
   std::string found(rest().substr(0, 24));
   throw ParseError("expected " + expected + " at offset " + std::to_string(pos_) + ", found '" +
                    found + "'");
}

void CharRange::literal(std::string_view expected) {
   if (text_.substr(pos_, expected.size()) != expected) {
      fail("'" + std::string(expected) + "'");
   }
   pos_ += expected.size();
}

void CharRange::recordOpen(std::string_view type, std::string_view firstAttribute) {
   literal(type);
   literal("{");
   literal(firstAttribute);
   literal("=");
}

void CharRange::attribute(std::string_view name) {
   literal(", ");
   literal(name);
   literal("=");
}

void CharRange::recordClose() { literal("}"); }

std::uint64_t CharRange::unsignedNumber(std::uint64_t max) {
   const std::size_t start = pos_;
   std::uint64_t value = 0;
   while (!atEnd() && text_[pos_] >= '0' && text_[pos_] <= '9') {
      const auto digit = static_cast<std::uint64_t>(text_[pos_] - '0');
      if (value > (max - digit) / 10) {
         pos_ = start;
         fail("an unsigned number of at most " + std::to_string(max));
      }
      value = value * 10 + digit;
      ++pos_;
   }
   if (pos_ == start) {
      fail("an unsigned number");
   }
   return value;
}

bool CharRange::boolean() {
   if (rest().starts_with("true")) {
      pos_ += 4;
      return true;
   }
   if (rest().starts_with("false")) {
      pos_ += 5;
      return false;
   }
   fail("'true' or 'false'");
}

Ptr<Entity> CharRange::objectRef() {
   const std::size_t start = pos_;
   while (!atEnd() && text_.substr(pos_, 1).find_first_of(" ,{}=") == std::string_view::npos) {
      ++pos_;
   }
   const std::string_view name = text_.substr(start, pos_ - start);
   if (name.empty()) {
      fail("an object name or 'null'");
   }
   if (name == "null") {
      return nullptr;
   }
   Ptr<Entity> object = Directory::object(name);
   if (!object) {
      pos_ = start;
      fail("the name of a known object ('" + std::string(name) + "' names none)");
   }
   return object;
}

std::string objectRefText(const Entity* entity) {
   return entity ? entity->entityText() : std::string("null");
}

}  // namespace Fwk
