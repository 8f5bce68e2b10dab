// --strict-restart's judgement: which rows the plan adopted unchanged and the run then touched.
#include <gtest/gtest.h>

#include "Rows.h"

namespace {

using Sim::RowFate;

TEST(StrictRestartTest, OnlyRowsThePlanAdoptedAndTheRunTouchedAreViolations) {
   const std::vector<RowFate> planned{RowFate::adopted,   RowFate::adopted, RowFate::adopted,
                                      RowFate::rewritten, RowFate::created, RowFate::purged,
                                      RowFate::free};
   const std::vector<RowFate> actual{RowFate::adopted,   RowFate::rewritten, RowFate::purged,
                                     RowFate::rewritten, RowFate::created,   RowFate::purged,
                                     RowFate::created};
   const auto violations = L3DecapCli::strictViolations(planned, actual);
   ASSERT_EQ(violations.size(), 2U);
   EXPECT_EQ(violations[0].index, 1U);
   EXPECT_EQ(violations[0].actual, RowFate::rewritten);
   EXPECT_EQ(violations[1].index, 2U);
   EXPECT_EQ(violations[1].actual, RowFate::purged);
   EXPECT_TRUE(L3DecapCli::strictViolations(planned, planned).empty());
}

}  // namespace
