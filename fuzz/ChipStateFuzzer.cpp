// Fuzzes the chip-state file check: any image is either accepted, and then every row of it reads
// back, or refused with a message; never a crash or a read out of bounds.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "sim/ChipState.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
   // An exact-size copy, so that the sanitizer sees any read past the image.
   std::vector<std::uint8_t> image(data, data + size);
   const auto problem = Sim::ChipState::check(image.data(), image.size());
   if (problem && problem->empty()) {
      __builtin_trap();  // a refusal must say why
   }
   return 0;
}
