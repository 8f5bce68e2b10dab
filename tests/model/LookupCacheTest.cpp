// The table's one-key lookup cache is checked against the collections in builds with debug
// checks: a mutator that forgot to tell it stops the process.
#include <gtest/gtest.h>

#include "AsicSwTable/LookupCache.h"

namespace Test {
namespace {

TEST(LookupCacheDeathTest, ARememberedMemberTheCollectionDisownsIsFatal) {
#if defined(NDEBUG)
   GTEST_SKIP() << "debug checks are compiled out of this build";
#endif
   Asic::LookupCache<int, int, int> cache;
   const int member = 1;
   cache.handleIs(5, &member);
   EXPECT_EQ(cache.handle(5, [&] { return &member; }), &member);
   EXPECT_DEATH(cache.handle(5, [] { return static_cast<const int*>(nullptr); }),
                "the lookup cache agrees with the collections");
   cache.resolvedIs(6, nullptr);  // another key: the handle of 5 is forgotten, not checked
   EXPECT_EQ(cache.handle(5, [] { return static_cast<const int*>(nullptr); }), nullptr);
}

}  // namespace
}  // namespace Test
