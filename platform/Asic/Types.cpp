#include "Asic/Types.h"

#include <string>

namespace Asic {

namespace {
std::string indexText(std::uint64_t bits) { return std::to_string(bits); }
}  // namespace

const Fwk::TypeDescriptor& indexType() {
   static const Fwk::TypeDescriptor d("Asic::Index", sizeof(Index), &indexText);
   return d;
}

}  // namespace Asic
