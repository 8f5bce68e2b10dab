// Ring-buffer trace: registration, writing through the default handle, decoding and formatting.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
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

TEST_F(TraceRingTest, SiteRegistersOncePerFile) {
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
}

TEST_F(TraceRingTest, SiteOfAnotherFileIsNotRegisteredHere) {
   auto site = siteFor("x", {});
   auto other = Rt::TraceFile::inMemory(2);
   other->registerMessage(site);
   EXPECT_TRUE(other->isRegistered(site));
   EXPECT_FALSE(file().isRegistered(site));
   Rt::record(site, nullptr, 0);
   EXPECT_TRUE(file().isRegistered(site));
   EXPECT_EQ(file().recordsWritten(), 1U);
   EXPECT_EQ(other->recordsWritten(), 0U);
}

TEST_F(TraceRingTest, NothingIsWrittenWithoutHandleOrFile) {
   auto site = siteFor("x", {});
   Rt::defaultHandleIs(nullptr);
   Rt::record(site, nullptr, 0);
   tracedStep(1);
   EXPECT_EQ(site.id, 0);

   Rt::defaultHandleIs(std::make_unique<Rt::Handle>(nullptr));
   Rt::record(site, nullptr, 0);
   EXPECT_EQ(site.id, 0);
}

TEST_F(TraceRingTest, DecodesOldestFirstAfterWrapping) {
   for (int step = 0; step < 10; ++step) {
      tracedStep(step);
   }
   EXPECT_EQ(file().recordsWritten(), 10U);
   EXPECT_THAT(decoded(),
               ElementsAre(StartsWith("6 Stepper: step 6 "), StartsWith("7 Stepper: step 7 "),
                           StartsWith("8 Stepper: step 8 "), StartsWith("9 Stepper: step 9 ")));
}

TEST_F(TraceRingTest, ArgumentsKeepTheirKind) {
   const std::string name = "IngL3IifTable";
   FWK_RING_TRACE("{} {} {:x} {} {}", "Kinds", -5, 255U, 0xBEEFULL, name, true);
   EXPECT_THAT(decoded(), ElementsAre(HasSubstr("Kinds: -5 255 beef IngL3IifTable 1")));
}

TEST_F(TraceRingTest, LongStringsAreTruncatedToTheSlot) {
   const std::string longText(200, 'a');
   FWK_RING_TRACE("<{}> {}", "Long", longText, 7);
   const auto lines = decoded();
   ASSERT_THAT(lines, SizeIs(1));
   const auto kept =
       lines[0].substr(lines[0].find('<') + 1, lines[0].find('>') - lines[0].find('<') - 1);
   EXPECT_GT(kept.size(), 30U);
   EXPECT_LT(kept.size(), longText.size());
   EXPECT_EQ(kept, longText.substr(0, kept.size()));
   EXPECT_THAT(lines[0], HasSubstr("> 7 ["));
}

TEST_F(TraceRingTest, ArgumentOfTheWrongKindShowsAsMissing) {
   auto site = siteFor("{} and {}", {Rt::ArgType::integer, Rt::ArgType::integer});
   const Rt::Arg args[] = {{Rt::ArgType::integer, 1, {}}, {Rt::ArgType::string, 0, "text"}};
   Rt::record(site, args, 2);
   EXPECT_THAT(decoded(), ElementsAre(HasSubstr("Op: 1 and <missing arg>")));
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
}

TEST_F(TraceRingTest, UnregisteredSiteIsNotWrittenDirectly) {
   auto site = siteFor("x", {});
   file().write(site, nullptr, 0);
   EXPECT_EQ(file().recordsWritten(), 0U);
}

TEST_F(TraceRingTest, InvalidSlotCountIsRefused) {
   EXPECT_THROW(Rt::TraceFile::inMemory(0), std::invalid_argument);
}

using TraceRingDeathTest = TraceRingTest;

TEST_F(TraceRingDeathTest, NegativeSiteIdIsFatal) {
   auto site = siteFor("x", {});
   site.id = -1;
   EXPECT_DEATH(Rt::record(site, nullptr, 0), "assertion failed: msgId_ >= 0");
}

class TraceRingFileTest : public testing::Test {
 protected:
   void TearDown() override { std::filesystem::remove(path_); }

   std::string path_ = (std::filesystem::temp_directory_path() /
                        ("ring_trace_" + std::to_string(::getpid()) + ".bin"))
                           .string();
};

TEST_F(TraceRingFileTest, FileHoldsTheImage) {
   auto site = siteFor("value {:x}", {Rt::ArgType::integer});
   {
      auto file = Rt::TraceFile::create(path_, 8);
      const Rt::Arg arg{Rt::ArgType::integer, 0xABCU, {}};
      file->registerMessage(site);
      file->write(site, &arg, 1);
   }
   std::ifstream in(path_, std::ios::binary);
   std::ostringstream contents;
   contents << in.rdbuf();
   EXPECT_EQ(contents.str().size(), Format::imageSize(8));
   EXPECT_THAT(Rt::decode(contents.str()), ElementsAre("0 Op: value abc [src/Engine.cpp:42]"));
}

TEST_F(TraceRingFileTest, UncreatableFileIsNamed) {
   const std::string bad = "/nonexistent-dir/ring.bin";
   try {
      Rt::TraceFile::create(bad, 8);
      ADD_FAILURE() << "created " << bad;
   } catch (const std::runtime_error& e) {
      EXPECT_THAT(e.what(), HasSubstr("'" + bad + "'"));
   }
}

struct FormatCase {
   const char* format;
   std::vector<Rt::Arg> args;
   const char* expected;
};

void PrintTo(const FormatCase& c, std::ostream* os) {
   *os << '"' << c.format << '"';
}

class FormatMessageTest : public testing::TestWithParam<FormatCase> {};

TEST_P(FormatMessageTest, FillsPlaceholders) {
   EXPECT_EQ(Rt::formatMessage(GetParam().format, GetParam().args), GetParam().expected);
}

Rt::Arg integer(std::uint64_t v) {
   return {Rt::ArgType::integer, v, {}};
}
Rt::Arg signedInteger(std::int64_t v) {
   return {Rt::ArgType::signedInteger, static_cast<std::uint64_t>(v), {}};
}
Rt::Arg text(std::string_view s) {
   return {Rt::ArgType::string, 0, s};
}

INSTANTIATE_TEST_SUITE_P(
    TraceRing, FormatMessageTest,
    testing::Values(FormatCase{"plain", {}, "plain"},
                    FormatCase{"{:x}", {integer(0xDEADBEEFU)}, "deadbeef"},
                    FormatCase{"{:x}/{}", {integer(255), integer(255)}, "ff/255"},
                    FormatCase{"{}", {integer(~0ULL)}, "18446744073709551615"},
                    FormatCase{"{} {:x}", {signedInteger(-255), signedInteger(-255)}, "-255 -ff"},
                    FormatCase{"{}", {signedInteger(INT64_MIN)}, "-9223372036854775808"},
                    FormatCase{"[{}] [{:x}]", {text("a"), text("b")}, "[a] [b]"},
                    FormatCase{"{} {}", {integer(1)}, "1 <missing arg>"},
                    FormatCase{"{}", {integer(1), text("more")}, "1 <extra arg: more>"},
                    FormatCase{"{:d} { {x} }", {}, "{:d} { {x} }"},
                    FormatCase{"{", {integer(3)}, "{ <extra arg: 3>"}));

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
   try {
      Rt::decode(image);
      ADD_FAILURE() << "decoded a damaged image";
   } catch (const std::runtime_error& e) {
      EXPECT_THAT(e.what(), HasSubstr(problem));
   }
}

// Overwrites the `width`-byte little-endian field at `offset` with `value`.
struct DamageCase {
   const char* name;
   std::size_t offset;
   std::uint64_t value;
   std::size_t width;
   const char* problem;
};

void PrintTo(const DamageCase& c, std::ostream* os) {
   *os << c.name;
}

class DamagedImageTest : public testing::TestWithParam<DamageCase> {};

TEST_P(DamagedImageTest, IsRefused) {
   auto image = validImage();
   ASSERT_THAT(Rt::decode(image), SizeIs(2));
   for (std::size_t i = 0; i < GetParam().width; ++i) {
      image[GetParam().offset + i] = static_cast<char>(GetParam().value >> (8 * i));
   }
   expectRefused(image, GetParam().problem);
}

constexpr std::size_t kSlot0 = Format::kRingOffset;
constexpr std::size_t kSlot1 = Format::kRingOffset + Rt::kSlotSize;
constexpr std::size_t kEntry0 = Format::kTableOffset;

INSTANTIATE_TEST_SUITE_P(
    TraceRing, DamagedImageTest,
    testing::Values(
        DamageCase{"BadMagic", Format::kMagicOffset, 'X', 1, "bad magic"},
        DamageCase{"Version", Format::kVersionOffset, 2, 4,
                   "unsupported ring trace format version 2"},
        DamageCase{"SlotSize", Format::kSlotSizeOffset, 32, 4, "slot size is 32, expected 64"},
        DamageCase{"SlotCount", Format::kSlotCountOffset, 5, 8, "header says 5 slots"},
        DamageCase{"HugeSlotCount", Format::kSlotCountOffset, ~0ULL, 8, "does not match the"},
        DamageCase{"MessageCount", Format::kMessageCountOffset, 257, 4,
                   "message count 257 exceeds"},
        DamageCase{"RecordsWritten", Format::kRecordsWrittenOffset, 3, 8,
                   "header counts 3 records written but the ring holds 2"},
        DamageCase{"EntryId", kEntry0 + Format::kEntryIdOffset, 7, 4,
                   "message table entry 0 does not hold id 1"},
        DamageCase{"ArgType", kEntry0 + Format::kEntryArgTypesOffset, 9, 1,
                   "unknown argument type 9"},
        DamageCase{"UnregisteredId", kSlot1 + Format::kSlotIdOffset, 2, 2,
                   "record in slot 1 names unregistered message id 2"},
        DamageCase{"Sequence", kSlot0 + Format::kSlotSequenceOffset, 1, 8,
                   "record in slot 0 has sequence number 1"},
        DamageCase{"ArgCount", kSlot0 + Format::kSlotArgCountOffset, 3, 1,
                   "has 3 arguments, its message only 2"},
        DamageCase{"StringLength", kSlot0 + Format::kSlotArgsOffset, 250, 1,
                   "record in slot 0: argument 1 runs past the slot end"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(TraceRingImageLengthTest, IsRefused) {
   const auto image = validImage();
   expectRefused("", "shorter than the header");
   expectRefused(image.substr(0, Format::kHeaderSize - 1), "shorter than the header");
   expectRefused(image.substr(0, Format::kHeaderSize + 10), "does not match the");
   expectRefused(image.substr(0, image.size() - 1), "does not match the");
   expectRefused(image + std::string(Rt::kSlotSize, '\0'), "does not match the");
}

}  // namespace
