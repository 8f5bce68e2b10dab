// Fatal assertions: a broken invariant between parts of the engine stops the process. The
// message names the condition as written, the explanation (if any), the source position and the
// function, then the process aborts.
#pragma once

#include <sstream>
#include <string>

namespace Fwk {
[[noreturn]] void assertionFailed(const char* condition, const std::string& explanation,
                                  const char* file, int line, const char* function) noexcept;
}

// `conditionText` is the condition as the system names it, which may be spelt differently from
// the C++ expression that checks it.
#define FWK_ASSERT(condition, conditionText)                                                 \
   do {                                                                                      \
      if (!(condition)) [[unlikely]] {                                                       \
         ::Fwk::assertionFailed(conditionText, std::string(), __FILE__, __LINE__, __func__); \
      }                                                                                      \
   } while (0)

// Same, with an explanation built from a stream expression, e.g. "unexpected key: " << key.
#define FWK_ASSERT_MSG(condition, conditionText, explanation)                                     \
   do {                                                                                           \
      if (!(condition)) [[unlikely]] {                                                            \
         std::ostringstream fwkAssertOs_;                                                         \
         fwkAssertOs_ << explanation;                                                             \
         ::Fwk::assertionFailed(conditionText, fwkAssertOs_.str(), __FILE__, __LINE__, __func__); \
      }                                                                                           \
   } while (0)

// Checks that cost too much for optimised builds: on where NDEBUG is not defined (the debug and
// sanitizer presets); elsewhere the condition is compiled but never evaluated.
#if defined(NDEBUG)
#define FWK_DEBUG_ASSERT(condition, conditionText) \
   do {                                            \
      if (false) {                                 \
         static_cast<void>(condition);             \
      }                                            \
   } while (0)
#define FWK_DEBUG_ASSERT_MSG(condition, conditionText, explanation) \
   FWK_DEBUG_ASSERT(condition, conditionText)
#else
#define FWK_DEBUG_ASSERT(condition, conditionText) FWK_ASSERT(condition, conditionText)
#define FWK_DEBUG_ASSERT_MSG(condition, conditionText, explanation) \
   FWK_ASSERT_MSG(condition, conditionText, explanation)
#endif
