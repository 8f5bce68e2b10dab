// Fuzzes the ring-buffer trace decoder: a foreign or damaged image is refused with a message,
// never read out of bounds.
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "Fwk/RingTrace.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
   const std::vector<char> image(data, data + size);
   try {
      Fwk::RingTrace::decode(std::string_view(image.data(), image.size()));
   } catch (const std::runtime_error&) {
   }
   return 0;
}
