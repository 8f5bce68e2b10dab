// The entry record: defaults, equality and ordering, copies and the profile handle's reference
// count, and the text form.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <tuple>

#include "Asic/HwTable.h"
#include "Fwk/Directory.h"
#include "Fwk/Errors.h"
#include "support/TableFixture.h"

namespace Test {
namespace {

using S = Asic::SwTableBase;
using ::testing::HasSubstr;

TEST(EntryTest, DefaultHasNullHandleZeroIndexFalseFlagsAndVrfZero) {
   EXPECT_EQ(fields(Entry()), fields(Entry(nullptr, 0, false, false, false, 0)));
}

TEST(EntryTest, DependentFieldTakesNoPartInEqualityOrOrdering) {
   auto h = ProfileHandle::make(S::success, 1);
   const Entry a(h, 3, true, false, true, 9);
   const Entry b(h, 200, true, false, true, 9);
   EXPECT_TRUE(a == b);
   EXPECT_TRUE(Entry::isEq(&a, &b));
   EXPECT_EQ(a <=> b, std::strong_ordering::equal);
}

TEST(EntryTest, FirstDifferingFieldDecidesTheOrder) {
   const auto h1 = ProfileHandle::make(S::success, 1);
   const auto h2 = ProfileHandle::make(S::success, 1);
   const bool h1First = std::less<const void*>()(h1.get(), h2.get());
   const auto& lo = h1First ? h1 : h2;
   const auto& hi = h1First ? h2 : h1;
   constexpr std::uint32_t max = 0xFFFFFFFF;
   // Each pair orders first before second although every later field, and the dependent field,
   // say the opposite.
   const std::pair<Entry, Entry> pairs[] = {
       {Entry(nullptr, 9, true, true, true, max), Entry(lo, 0, false, false, false, 0)},
       {Entry(lo, 9, true, true, true, max), Entry(hi, 0, false, false, false, 0)},
       {Entry(lo, 9, false, true, true, max), Entry(lo, 0, true, false, false, 0)},
       {Entry(lo, 9, false, false, true, max), Entry(lo, 0, false, true, false, 0)},
       {Entry(lo, 9, false, false, false, max), Entry(lo, 0, false, false, true, 0)},
       {Entry(lo, 9, false, false, false, 1), Entry(lo, 0, false, false, false, max)},
   };
   for (const auto& [lower, higher] : pairs) {
      SCOPED_TRACE(TalvikL3Decap::toText(lower) + " < " + TalvikL3Decap::toText(higher));
      EXPECT_FALSE(lower == higher);
      EXPECT_EQ(lower <=> higher, std::strong_ordering::less);
      EXPECT_EQ(higher <=> lower, std::strong_ordering::greater);
   }
}

class EntryCopyTest : public ::testing::Test {
 protected:
   Fwk::Ptr<ProfileHandle> h = ProfileHandle::make(S::success, 4);
   Fwk::Ptr<ProfileHandle> other = ProfileHandle::make(S::success, 5);
   Entry original{h, 17, true, false, true, 300};
};

TEST_F(EntryCopyTest, CopyTakesAllFieldsAndOneReference) {
   {
      const Entry copy(original);
      EXPECT_EQ(fields(copy), fields(original));
      EXPECT_EQ(h->refCount(), 3U);
   }
   EXPECT_EQ(h->refCount(), 2U);
   Entry target(other, 1, false, false, false, 1);
   target = original;
   EXPECT_EQ(fields(target), fields(original));
   EXPECT_EQ(h->refCount(), 3U);
   EXPECT_EQ(other->refCount(), 1U);
}

TEST_F(EntryCopyTest, MoveTransfersTheReference) {
   const auto expected = fields(original);
   Entry moved(std::move(original));
   EXPECT_EQ(fields(moved), expected);
   EXPECT_EQ(original.l3IifProfileIndexHandle, nullptr);  // NOLINT(bugprone-use-after-move)
   EXPECT_EQ(h->refCount(), 2U);
   Entry target(other, 1, false, false, false, 1);
   target = std::move(moved);
   EXPECT_EQ(fields(target), expected);
   EXPECT_EQ(h->refCount(), 2U);
   EXPECT_EQ(other->refCount(), 1U);
}

// --- text form ---

class EntryTextTest : public ::testing::Test {
 protected:
   Fwk::Ptr<ProfileHandle> h = ProfileHandle::make(S::success, 4, "entryTextProfile");
};

TEST_F(EntryTextTest, PrintedFormParsesBackToTheSameFields) {
   for (const Entry& e : {Entry(), Entry(h, 255, true, false, true, 0xFFFFFFFF),
                          Entry(h, 0, false, true, false, 12)}) {
      std::ostringstream os;
      os << e;
      EXPECT_EQ(os.str(), TalvikL3Decap::toText(e));
      EXPECT_THAT(os.str(), ::testing::StartsWith("TalvikL3Decap::IngL3IifTable::Entry{"));
      EXPECT_EQ(fields(TalvikL3Decap::strepToValue<Entry>(os.str())), fields(e)) << os.str();
   }
}

enum class Fails { conversion, parse, attribute };

struct BadText {
   const char* name;
   std::string text;
   Fails kind;
};

class EntryParseErrorTest : public EntryTextTest, public ::testing::WithParamInterface<BadText> {
 protected:
   static void SetUpTestSuite() {
      hwTable = Fwk::make<Asic::HwTable>("notAHandle", 4);
      Fwk::Directory::objectIs("notAHandle", hwTable.get());
   }
   static void TearDownTestSuite() { hwTable = nullptr; }
   static inline Fwk::Ptr<Asic::HwTable> hwTable;
};

std::string record(const std::string& handle, const std::string& index, const std::string& vrf) {
   return "TalvikL3Decap::IngL3IifTable::Entry{l3IifProfileIndexHandle=" + handle +
          ", l3IifProfileIndex=" + index +
          ", ipv4UcEnable=true, ipv6UcEnable=false, trustDscp=false, vrf=" + vrf + "}";
}

TEST_P(EntryParseErrorTest, FailsWithTheFrameworkError) {
   const auto& param = GetParam();
   try {
      TalvikL3Decap::strepToValue<Entry>(param.text);
      ADD_FAILURE() << "parsed: " << param.text;
   } catch (const Fwk::ConversionError& e) {
      EXPECT_EQ(param.kind, Fails::conversion) << e.what();
   } catch (const Fwk::ParseError& e) {
      EXPECT_EQ(param.kind, Fails::parse) << e.what();
   } catch (const Fwk::AttributeDeserialisationError& e) {
      EXPECT_EQ(param.kind, Fails::attribute) << e.what();
      EXPECT_THAT(e.what(), HasSubstr("'l3IifProfileIndexHandle'"));
   }
}

INSTANTIATE_TEST_SUITE_P(
    Texts, EntryParseErrorTest,
    ::testing::Values(
        BadText{"NotAnEntryHandle", record("notAHandle", "1", "1"), Fails::conversion},
        BadText{"UnknownName", record("noSuchObject", "1", "1"), Fails::attribute},
        BadText{"TrailingText", record("entryTextProfile", "1", "1") + " ", Fails::parse},
        BadText{"IndexAbove8Bits", record("entryTextProfile", "256", "1"), Fails::parse},
        BadText{"VrfAbove32Bits", record("null", "1", "4294967296"), Fails::parse},
        BadText{"OtherRecordType", "Other{l3IifProfileIndexHandle=null}", Fails::parse}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace Test
