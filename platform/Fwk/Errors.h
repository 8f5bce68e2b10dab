// The framework's error types. A missing optional value raises std::bad_optional_access, the
// standard optional-access error.
#pragma once

#include <stdexcept>
#include <string>

namespace Fwk {

// An instantiating collection was asked for an existing key with different constructor
// arguments.
class ReinstantiationError : public std::logic_error {
  public:
   explicit ReinstantiationError(const std::string& attribute)
       : std::logic_error("re-instantiation of attribute '" + attribute +
                          "' with different constructor arguments") {}
};

// A value of one type was given where another was needed.
class ConversionError : public std::invalid_argument {
  public:
   using std::invalid_argument::invalid_argument;
};

// Text that does not parse; the message names what was expected and the offset where.
class ParseError : public std::invalid_argument {
  public:
   using std::invalid_argument::invalid_argument;
};

// An attribute's value could not be read from its text form.
class AttributeDeserialisationError : public std::runtime_error {
  public:
   AttributeDeserialisationError(const std::string& attribute, const std::string& why)
       : std::runtime_error("cannot deserialise attribute '" + attribute + "': " + why) {}
};

}  // namespace Fwk
