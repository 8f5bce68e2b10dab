// Ring-buffer trace: registration, writing through the default handle, decoding and formatting.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "Fwk/RingTrace.h"
#include "Fwk/RingTraceImage.h"

namespace {

namespace Rt = Fwk::RingTrace;
namespace Format = Fwk::RingTrace::RingTraceFormat;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;
using testing::StartsWith;

Rt::MessageSite siteFor(const char* format, std::initializer_list<Rt::ArgType> types) {
   Rt::MessageSite site{0, "src/Engine.cpp", 42, "Op", format, 0, {}};
   for (const auto type : types) {
      site.argTypes[site.argCount++] = type;
   }
   return site;
}

std::uint32_t messageCount(const Rt::TraceFile& file) {
   const auto image = file.image();
   return Rt::loadLe<std::uint32_t>(Rt::ConstBytes(
       reinterpret_cast<const std::uint8_t*>(image.data()) + Format::kMessageCountOffset, 4));
}

// One call site, traced from several tests.
void tracedStep(int step) {
   FWK_RING_TRACE("step {} of {}", "Stepper", step, "run");
}

class TraceRingTest : public testing::Test {
 protected:
   void SetUp() override { install(4); }
   void TearDown() override { Rt::defaultHandleIs(nullptr); }

   Rt::TraceFile& install(std::size_t slots) {
      Rt::defaultHandleIs(std::make_unique<Rt::Handle>(Rt::TraceFile::inMemory(slots)));
      return file();
   }
   Rt::TraceFile& file() const { return *Rt::defaultHandle()->file(); }
   std::vector<std::string> decoded() const { return Rt::decode(file().image()); }
};

TEST_F(TraceRingTest, SiteRegistersOncePerFileAndOnlyThroughRecord) {
   tracedStep(1);
   tracedStep(2);
   EXPECT_EQ(messageCount(file()), 1U);
   EXPECT_THAT(decoded(), ElementsAre(AllOf(StartsWith("0 Stepper: step 1 of run ["),
                                            HasSubstr("RingTraceTest.cpp:")),
                                      StartsWith("1 Stepper: step 2 of run")));
   install(4);
   tracedStep(3);
   EXPECT_EQ(messageCount(file()), 1U);
   EXPECT_THAT(decoded(), ElementsAre(StartsWith("0 Stepper: step 3 of run")));

   auto site = siteFor("x", {});
   auto other = Rt::TraceFile::inMemory(2);
   other->registerMessage(site);
   EXPECT_FALSE(file().isRegistered(site));
   file().write(site, nullptr, 0);  // not registered here: not written
   EXPECT_EQ(file().recordsWritten(), 1U);
   Rt::record(site, nullptr, 0);
   EXPECT_TRUE(file().isRegistered(site));
   EXPECT_EQ(file().recordsWritten(), 2U);
   EXPECT_EQ(other->recordsWritten(), 0U);
}

TEST_F(TraceRingTest, DecodesOldestFirstAfterWrappingAndNothingIsWrittenWithoutHandleOrFile) {
   for (int step = 0; step < 10; ++step) {
      tracedStep(step);
   }
   EXPECT_EQ(file().recordsWritten(), 10U);
   EXPECT_THAT(decoded(),
               ElementsAre(StartsWith("6 Stepper: step 6 "), StartsWith("7 Stepper: step 7 "),
                           StartsWith("8 Stepper: step 8 "), StartsWith("9 Stepper: step 9 ")));
   auto site = siteFor("x", {});
   Rt::defaultHandleIs(nullptr);
   Rt::record(site, nullptr, 0);
   tracedStep(1);
   Rt::defaultHandleIs(std::make_unique<Rt::Handle>(nullptr));
   Rt::record(site, nullptr, 0);
   EXPECT_EQ(site.id, 0);
}

TEST_F(TraceRingTest, ArgumentsKeepTheirKindLongStringsAreCutWrongKindsShowAsMissing) {
   const std::string name = "IngL3IifTable";
   FWK_RING_TRACE("{} {} {:x} {} {}", "Kinds", -5, 255U, 0xBEEFULL, name, true);
   const std::string longText(200, 'a');
   FWK_RING_TRACE("<{}> {}", "Long", longText, 7);
   auto site = siteFor("{} and {}", {Rt::ArgType::integer, Rt::ArgType::integer});
   const Rt::Arg args[] = {{Rt::ArgType::integer, 1, {}}, {Rt::ArgType::string, 0, "text"}};
   Rt::record(site, args, 2);
   const auto lines = decoded();
   ASSERT_THAT(lines, SizeIs(3));
   EXPECT_THAT(lines[0], HasSubstr("Kinds: -5 255 beef IngL3IifTable 1"));
   const auto kept =
       lines[1].substr(lines[1].find('<') + 1, lines[1].find('>') - lines[1].find('<') - 1);
   EXPECT_GT(kept.size(), 30U);
   EXPECT_LT(kept.size(), longText.size());
   EXPECT_EQ(kept, longText.substr(0, kept.size()));
   EXPECT_THAT(lines[1], HasSubstr("> 7 ["));
   EXPECT_THAT(lines[2], HasSubstr("Op: 1 and <missing arg>"));
}

TEST_F(TraceRingTest, FullMessageTableLosesOnlyTheNewRecord) {
   std::vector<Rt::MessageSite> sites(Rt::kMaxMessages + 1, siteFor("m", {}));
   for (std::size_t i = 0; i < Rt::kMaxMessages; ++i) {
      Rt::record(sites[i], nullptr, 0);
   }
   EXPECT_THROW(file().registerMessage(sites.back()), std::length_error);
   Rt::record(sites.back(), nullptr, 0);
   EXPECT_EQ(sites.back().id, 0);
   EXPECT_EQ(file().recordsWritten(), Rt::kMaxMessages);
   EXPECT_THAT(decoded(), SizeIs(4));
   EXPECT_THROW(Rt::TraceFile::inMemory(0), std::invalid_argument);
}

using TraceRingDeathTest = TraceRingTest;

TEST_F(TraceRingDeathTest, NegativeSiteIdIsFatal) {
   auto site = siteFor("x", {});
   site.id = -1;
   EXPECT_DEATH(Rt::record(site, nullptr, 0), "assertion failed: msgId_ >= 0");
}

TEST(TraceRingFileTest, FileHoldsTheImageAndAnUncreatableOneIsNamed) {
   const std::string path = (std::filesystem::temp_directory_path() /
                             ("ring_trace_" + std::to_string(::getpid()) + ".bin"))
                                .string();
   auto site = siteFor("value {:x}", {Rt::ArgType::integer});
   {
      auto file = Rt::TraceFile::create(path, 8);
      const Rt::Arg arg{Rt::ArgType::integer, 0xABCU, {}};
      file->registerMessage(site);
      file->write(site, &arg, 1);
   }
   std::ostringstream contents;
   contents << std::ifstream(path, std::ios::binary).rdbuf();
   std::filesystem::remove(path);
   EXPECT_EQ(contents.str().size(), Format::imageSize(8));
   EXPECT_THAT(Rt::decode(contents.str()), ElementsAre("0 Op: value abc [src/Engine.cpp:42]"));
   EXPECT_THAT(
       [] { Rt::TraceFile::create("/nonexistent-dir/ring.bin", 8); },
       testing::ThrowsMessage<std::runtime_error>(HasSubstr("'/nonexistent-dir/ring.bin'")));
}

struct FormatCase {
   const char* format;
   std::vector<Rt::Arg> args;
   const char* expected;
};

Rt::Arg integer(std::uint64_t v) {
   return {Rt::ArgType::integer, v, {}};
}
Rt::Arg signedInteger(std::int64_t v) {
   return {Rt::ArgType::signedInteger, static_cast<std::uint64_t>(v), {}};
}
Rt::Arg text(std::string_view s) {
   return {Rt::ArgType::string, 0, s};
}

TEST(TraceRingFormatTest, FillsPlaceholders) {
   for (const auto& c :
        {FormatCase{"plain", {}, "plain"}, FormatCase{"{:x}", {integer(0xDEADBEEFU)}, "deadbeef"},
         FormatCase{"{:x}/{}", {integer(255), integer(255)}, "ff/255"},
         FormatCase{"{}", {integer(~0ULL)}, "18446744073709551615"},
         FormatCase{"{} {:x}", {signedInteger(-255), signedInteger(-255)}, "-255 -ff"},
         FormatCase{"{}", {signedInteger(INT64_MIN)}, "-9223372036854775808"},
         FormatCase{"[{}] [{:x}]", {text("a"), text("b")}, "[a] [b]"},
         FormatCase{"{} {}", {integer(1)}, "1 <missing arg>"},
         FormatCase{"{}", {integer(1), text("more")}, "1 <extra arg: more>"},
         FormatCase{"{:d} { {x} }", {}, "{:d} { {x} }"},
         FormatCase{"{", {integer(3)}, "{ <extra arg: 3>"}}) {
      EXPECT_EQ(Rt::formatMessage(c.format, c.args), c.expected) << c.format;
   }
}

// A valid image with one registered message and two records, damaged in one way per case.
std::string validImage() {
   auto file = Rt::TraceFile::inMemory(4);
   auto site = siteFor("{} {}", {Rt::ArgType::string, Rt::ArgType::integer});
   file->registerMessage(site);
   const Rt::Arg args[] = {text("name"), integer(9)};
   file->write(site, args, 2);
   file->write(site, args, 2);
   return std::string(file->image());
}

void expectRefused(const std::string& image, const std::string& problem) {
   EXPECT_THAT([&] { Rt::decode(image); },
               testing::ThrowsMessage<std::runtime_error>(HasSubstr(problem)))
       << problem;
}

constexpr std::size_t kSlot0 = Format::kRingOffset;
constexpr std::size_t kSlot1 = Format::kRingOffset + Rt::kSlotSize;
constexpr std::size_t kEntry0 = Format::kTableOffset;

// Overwrites the `width`-byte little-endian field at `offset` with `value`.
struct DamageCase {
   std::size_t offset;
   std::uint64_t value;
   std::size_t width;
   const char* problem;
};

TEST(TraceRingImageTest, DamagedImageIsRefusedNamingTheDamage) {
   const auto valid = validImage();
   ASSERT_THAT(Rt::decode(valid), SizeIs(2));
   for (const auto& c :
        {DamageCase{Format::kMagicOffset, 'X', 1, "bad magic"},
         DamageCase{Format::kVersionOffset, 2, 4, "unsupported ring trace format version 2"},
         DamageCase{Format::kSlotSizeOffset, 32, 4, "slot size is 32, expected 64"},
         DamageCase{Format::kSlotCountOffset, 5, 8, "header says 5 slots"},
         DamageCase{Format::kSlotCountOffset, ~0ULL, 8, "does not match the"},
         DamageCase{Format::kMessageCountOffset, 257, 4, "message count 257 exceeds"},
         DamageCase{Format::kRecordsWrittenOffset, 3, 8,
                    "header counts 3 records written but the ring holds 2"},
         DamageCase{kEntry0 + Format::kEntryIdOffset, 7, 4,
                    "message table entry 0 does not hold id 1"},
         DamageCase{kEntry0 + Format::kEntryArgTypesOffset, 9, 1, "unknown argument type 9"},
         DamageCase{kSlot1 + Format::kSlotIdOffset, 2, 2,
                    "record in slot 1 names unregistered message id 2"},
         DamageCase{kSlot0 + Format::kSlotSequenceOffset, 1, 8,
                    "record in slot 0 has sequence number 1"},
         DamageCase{kSlot0 + Format::kSlotArgCountOffset, 3, 1,
                    "has 3 arguments, its message only 2"},
         DamageCase{kSlot0 + Format::kSlotArgsOffset, 250, 1,
                    "record in slot 0: argument 1 runs past the slot end"}}) {
      auto image = valid;
      for (std::size_t i = 0; i < c.width; ++i) {
         image[c.offset + i] = static_cast<char>(c.value >> (8 * i));
      }
      expectRefused(image, c.problem);
   }
   expectRefused("", "shorter than the header");
   expectRefused(valid.substr(0, Format::kHeaderSize - 1), "shorter than the header");
   expectRefused(valid.substr(0, Format::kHeaderSize + 10), "does not match the");
   expectRefused(valid.substr(0, valid.size() - 1), "does not match the");
   expectRefused(valid + std::string(Rt::kSlotSize, '\0'), "does not match the");
}

}  // namespace
