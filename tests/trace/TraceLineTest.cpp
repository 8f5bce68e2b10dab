// Composing lines with FWK_TRACE and writing them to the sinks.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <limits>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>

#include "Fwk/Trace.h"

namespace {

using Fwk::Trace::Handle;
using Fwk::Trace::MemorySink;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;

struct Point {
   int x;
   int y;
};
std::ostream& operator<<(std::ostream& os, const Point& p) {
   return os << '(' << p.x << ',' << p.y << ')';
}

class TraceLineTest : public testing::Test {
 protected:
   void SetUp() override {
      handle_.levelsIs(0x2U);
      previous_ = Fwk::Trace::sinkIs(sink_);
   }
   void TearDown() override { Fwk::Trace::sinkIs(previous_); }

   Handle handle_{"LineTest", false};
   std::shared_ptr<MemorySink> sink_ = std::make_shared<MemorySink>();
   std::shared_ptr<Fwk::Trace::Sink> previous_;
};

TEST_F(TraceLineTest, DisabledLevelEvaluatesNothing) {
   int evaluations = 0;
   const auto counted = [&evaluations] { return ++evaluations; };
   FWK_TRACE(handle_, 3, "value " << counted());
   EXPECT_EQ(evaluations, 0);
   EXPECT_TRUE(sink_->records().empty());

   FWK_TRACE(handle_, 1, "value " << counted());
   EXPECT_EQ(evaluations, 1);
   EXPECT_THAT(sink_->texts(), ElementsAre("value 1"));
}

TEST_F(TraceLineTest, ComposesStringsBooleansAndIntegers) {
   const std::string owned = "owned";
   const Point point{1, -2};
   FWK_TRACE(handle_, 1,
             "lit " << owned << ' ' << std::string_view("view") << ' ' << true << '/' << false
                    << ' ' << -42 << ' ' << std::int8_t{-3} << ' ' << std::uint8_t{200} << ' '
                    << std::numeric_limits<std::int64_t>::min() << ' '
                    << std::numeric_limits<std::uint64_t>::max() << ' ' << point);
   EXPECT_THAT(sink_->texts(), ElementsAre("lit owned view true/false -42 -3 200 "
                                           "-9223372036854775808 18446744073709551615 (1,-2)"));
}

TEST_F(TraceLineTest, RecordCarriesItsOrigin) {
   FWK_TRACE(handle_, 1, "origin");
   const int line = __LINE__ - 1;
   const auto records = sink_->records();
   ASSERT_EQ(records.size(), 1U);
   EXPECT_EQ(records[0].handle, "LineTest");
   EXPECT_EQ(records[0].level, 1);
   EXPECT_THAT(records[0].file, EndsWith("TraceLineTest.cpp"));
   EXPECT_EQ(records[0].line, line);
   EXPECT_EQ(records[0].function, "TestBody");
}

TEST_F(TraceLineTest, MemorySinkSelectsAndClears) {
   Handle other("LineOther", false);
   other.levelsIs(0x2U);
   FWK_TRACE(handle_, 1, "mine");
   FWK_TRACE(other, 1, "theirs");
   EXPECT_THAT(sink_->texts("LineOther"), ElementsAre("theirs"));
   EXPECT_THAT(sink_->texts(), ElementsAre("mine", "theirs"));
   sink_->clear();
   EXPECT_TRUE(sink_->texts().empty());
}

TEST_F(TraceLineTest, NullSinkRestoresStderr) {
   EXPECT_EQ(Fwk::Trace::sinkIs(nullptr), sink_);
   testing::internal::CaptureStderr();
   FWK_TRACE(handle_, 1, "to stderr " << 7);
   EXPECT_EQ(testing::internal::GetCapturedStderr(), "LineTest/1 to stderr 7\n");
   EXPECT_TRUE(sink_->records().empty());
}

class TraceFileSinkTest : public TraceLineTest {
 protected:
   void TearDown() override {
      TraceLineTest::TearDown();
      std::filesystem::remove(path_);
   }
   std::string contents() const {
      std::ifstream in(path_);
      std::ostringstream out;
      out << in.rdbuf();
      return out.str();
   }

   std::string path_ = (std::filesystem::temp_directory_path() /
                        ("trace_sink_" + std::to_string(::getpid()) + ".txt"))
                           .string();
};

TEST_F(TraceFileSinkTest, AppendsLines) {
   std::ofstream(path_) << "earlier\n";
   Fwk::Trace::sinkIs(std::make_shared<Fwk::Trace::FileSink>(path_));
   FWK_TRACE(handle_, 1, "first");
   FWK_TRACE(handle_, 1, "second " << 2U);
   Fwk::Trace::sinkIs(sink_);  // closes the file
   EXPECT_EQ(contents(), "earlier\nLineTest/1 first\nLineTest/1 second 2\n");
}

TEST_F(TraceFileSinkTest, UnopenableFileIsNamed) {
   const std::string bad = "/nonexistent-dir/trace.txt";
   try {
      Fwk::Trace::FileSink sink(bad);
      ADD_FAILURE() << "opened " << bad;
   } catch (const std::runtime_error& e) {
      EXPECT_THAT(e.what(), HasSubstr("'" + bad + "'"));
   }
}

}  // namespace
