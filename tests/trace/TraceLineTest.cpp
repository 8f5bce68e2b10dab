// Composing lines with FWK_TRACE and writing them to the sinks.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

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
   void TearDown() override {
      Fwk::Trace::sinkIs(previous_);
      std::filesystem::remove(path_);
   }

   Handle handle_{"LineTest", false};
   std::shared_ptr<MemorySink> sink_ = std::make_shared<MemorySink>();
   std::shared_ptr<Fwk::Trace::Sink> previous_;
   std::string path_ = (std::filesystem::temp_directory_path() /
                        ("trace_sink_" + std::to_string(::getpid()) + ".txt"))
                           .string();
};

TEST_F(TraceLineTest, EnabledLevelComposesItsLineWithItsOriginDisabledOneEvaluatesNothing) {
   int evaluations = 0;
   const auto counted = [&evaluations] { return ++evaluations; };
   FWK_TRACE(handle_, 3, "value " << counted());
   EXPECT_EQ(evaluations, 0);
   const Point point{1, -2};
   const int line = __LINE__ + 1;
   FWK_TRACE(handle_, 1,
             "value " << counted() << ' ' << std::string("owned") << ' ' << std::string_view("view")
                      << ' ' << true << '/' << false << ' ' << std::int8_t{-3} << ' '
                      << std::uint8_t{200} << ' ' << std::numeric_limits<std::int64_t>::min() << ' '
                      << std::numeric_limits<std::uint64_t>::max() << ' ' << point);
   const auto records = sink_->records();
   ASSERT_EQ(records.size(), 1U);
   EXPECT_EQ(records[0].text,
             "value 1 owned view true/false -3 200 -9223372036854775808 "
             "18446744073709551615 (1,-2)");
   EXPECT_EQ(records[0].handle, "LineTest");
   EXPECT_EQ(records[0].level, 1);
   EXPECT_THAT(records[0].file, testing::EndsWith("TraceLineTest.cpp"));
   EXPECT_EQ(records[0].line, line);
   EXPECT_EQ(records[0].function, "TestBody");
}

TEST_F(TraceLineTest, SinksSelectClearFallBackToStderrAndAppendToFiles) {
   Handle other("LineOther", false);
   other.levelsIs(0x2U);
   FWK_TRACE(handle_, 1, "mine");
   FWK_TRACE(other, 1, "theirs");
   EXPECT_THAT(sink_->texts("LineOther"), ElementsAre("theirs"));
   EXPECT_THAT(sink_->texts(), ElementsAre("mine", "theirs"));
   sink_->clear();
   EXPECT_TRUE(sink_->texts().empty());

   EXPECT_EQ(Fwk::Trace::sinkIs(nullptr), sink_);
   testing::internal::CaptureStderr();
   FWK_TRACE(handle_, 1, "to stderr " << 7);
   EXPECT_EQ(testing::internal::GetCapturedStderr(), "LineTest/1 to stderr 7\n");

   std::ofstream(path_) << "earlier\n";
   Fwk::Trace::sinkIs(std::make_shared<Fwk::Trace::FileSink>(path_));
   FWK_TRACE(handle_, 1, "first");
   FWK_TRACE(handle_, 1, "second " << 2U);
   Fwk::Trace::sinkIs(sink_);  // closes the file
   std::ostringstream contents;
   contents << std::ifstream(path_).rdbuf();
   EXPECT_EQ(contents.str(), "earlier\nLineTest/1 first\nLineTest/1 second 2\n");
   EXPECT_TRUE(sink_->records().empty());
}

TEST_F(TraceLineTest, UnopenableFileIsNamed) {
   EXPECT_THAT([] { Fwk::Trace::FileSink("/nonexistent-dir/trace.txt"); },
               testing::ThrowsMessage<std::runtime_error>(
                   testing::HasSubstr("'/nonexistent-dir/trace.txt'")));
}

}  // namespace
