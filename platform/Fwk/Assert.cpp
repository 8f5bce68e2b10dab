#include "Fwk/Assert.h"

#include <cstdio>
#include <cstdlib>

namespace Fwk {

void assertionFailed(const char* condition, const std::string& explanation, const char* file,
                     int line, const char* function) noexcept {
   std::fprintf(stderr, "FATAL: assertion failed: %s\n", condition);
   if (!explanation.empty()) {
      std::fprintf(stderr, "  %s\n", explanation.c_str());
   }
   std::fprintf(stderr, "  at %s:%d in %s\n", file, line, function);
   std::fflush(stderr);
   std::abort();
}

}  // namespace Fwk
