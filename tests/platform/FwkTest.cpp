// The entity framework's services: change publication, the directory of named objects, type
// descriptors and fatal assertions.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

#include "Fwk/Assert.h"
#include "Fwk/Directory.h"
#include "Fwk/Entity.h"
#include "TalvikL3Common/L3TunnelIntfKey.h"

namespace Test {
namespace {

using Changes = std::vector<std::string>;
using TalvikL3Common::L3TunnelIntfKey;

class Thing : public Fwk::Entity {
 public:
   static constexpr std::string_view kTypeName = "Test::Thing";
   const Fwk::TypeDescriptor& typeData() const override { return Fwk::typeOf<Thing>(); }
};

// --- publisher ---

// Unregisters itself when told.
class LeavingObserver : public Fwk::Observer {
 public:
   explicit LeavingObserver(const Fwk::Entity& e) : entity(e) {
      entity.publisher().observerIs(this);
   }
   void onChange(const Fwk::Change&) override {
      ++told;
      entity.publisher().observerDel(this);
   }
   const Fwk::Entity& entity;
   int told = 0;
};

TEST(PublisherTest, EachObserverIsToldOnceUntilItLeavesEvenWhileBeingTold) {
   const auto thing = Fwk::make<Thing>();
   auto first = std::make_unique<Fwk::RecordingObserver>(*thing);
   thing->publisher().observerIs(first.get());  // a second registration changes nothing
   {
      Fwk::RecordingObserver second(*thing);
      LeavingObserver leaving(*thing);
      thing->notify("a");
      thing->notify("member", L3TunnelIntfKey(9));
      EXPECT_EQ(second.changes(), (Changes{"a", "member[9]"}));
      EXPECT_EQ(leaving.told, 1);
   }
   thing->notify("member", Fwk::ChangeKey::of(L3TunnelIntfKey(10)));
   EXPECT_EQ(first->changes(), (Changes{"a", "member[9]", "member[10]"}));
   first.reset();
   EXPECT_FALSE(thing->publisher().hasObservers());
}

TEST(PublisherTest, PreviousValueIsBuiltOnlyForObservers) {
   const auto thing = Fwk::make<Thing>();
   int built = 0;
   const auto notify = [&] {
      thing->notifyWithPrevious("a", {}, [&built] {
         ++built;
         return std::string("old");
      });
   };
   notify();
   EXPECT_EQ(built, 0);
   Fwk::RecordingObserver obs(*thing);
   notify();
   EXPECT_EQ(built, 1);
   EXPECT_EQ(obs.changes(), Changes{"a was old"});
}

// --- directory ---

TEST(DirectoryTest, NamesFindTheirEntityFollowRenamesAndLeaveWithIt) {
   const auto thing = Fwk::make<Thing>();
   Fwk::Directory::objectIs("dirThing1", thing.get());
   EXPECT_EQ(Fwk::Directory::object("dirThing1"), thing);
   EXPECT_EQ(Fwk::Directory::nameOf(thing.get()), "dirThing1");
   EXPECT_EQ(thing->entityText(), "dirThing1");
   Fwk::Directory::objectIs("dirThing2", thing.get());
   EXPECT_EQ(Fwk::Directory::object("dirThing1"), nullptr);
   EXPECT_EQ(Fwk::Directory::object("dirThing2"), thing);
   Fwk::Directory::objectDel("dirThing2");
   EXPECT_EQ(Fwk::Directory::object("dirThing2"), nullptr);
   EXPECT_EQ(Fwk::Directory::nameOf(thing.get()), "");
   EXPECT_THAT(thing->entityText(), ::testing::StartsWith("Test::Thing@"));
   auto gone = Fwk::make<Thing>();
   Fwk::Directory::objectIs("dirGone", gone.get());
   gone = nullptr;  // a destroyed entity leaves, and its name is free
   EXPECT_EQ(Fwk::Directory::object("dirGone"), nullptr);
   Fwk::Directory::objectIs("dirGone", thing.get());
   EXPECT_EQ(Fwk::Directory::object("dirGone"), thing);
}

class DirectoryNameTest : public ::testing::TestWithParam<std::string> {};

TEST_P(DirectoryNameTest, IsRefused) {
   const auto holder = Fwk::make<Thing>();
   Fwk::Directory::objectIs("dirTaken", holder.get());
   const auto thing = Fwk::make<Thing>();
   EXPECT_THROW(Fwk::Directory::objectIs(GetParam(), thing.get()), std::invalid_argument);
   EXPECT_EQ(Fwk::Directory::nameOf(thing.get()), "");
   EXPECT_EQ(Fwk::Directory::object("dirTaken"), holder);
}

INSTANTIATE_TEST_SUITE_P(Names, DirectoryNameTest,
                         ::testing::Values("", "a b", "a,b", "a{", "a}", "a=b", "a\tb", "null",
                                           "dirTaken"));

// --- type descriptors ---

TEST(TypeDescriptorTest, OneDescriptorPerTypeFoundByNameKeysCarryTheirBitsAndText) {
   const auto& d = Fwk::typeOf<Thing>();
   EXPECT_EQ(&Fwk::typeOf<const Thing>(), &d);
   EXPECT_EQ(d.name(), "Test::Thing");
   EXPECT_EQ(Fwk::TypeDescriptor::find("Test::Thing"), &d);
   EXPECT_EQ(Fwk::TypeDescriptor::find("Test::NoSuchType"), nullptr);
   const L3TunnelIntfKey key(0xFFFFFFFFFFFFFFFFULL);
   const auto& k = Fwk::typeOf<L3TunnelIntfKey>();
   EXPECT_EQ(k.keyBits(&key), key.value());
   EXPECT_EQ(k.keyText(k.keyBits(&key)), "18446744073709551615");
   EXPECT_EQ(d.keyText(7), "7");
   const auto changeKey = Fwk::ChangeKey::of(key);
   EXPECT_TRUE(changeKey.isEq(Fwk::ChangeKey::of(L3TunnelIntfKey(key.value()))));
   EXPECT_FALSE(changeKey.isEq(Fwk::ChangeKey::of(L3TunnelIntfKey(1))));
   EXPECT_FALSE(changeKey.isEq(Fwk::ChangeKey{&Fwk::typeOf<Thing>(), key.value()}));
}

// --- fatal assertions ---

void checkBelowThree(int value) {
   FWK_ASSERT_MSG(value < 3, "value < 3", "value was " << value);
}
void checkPositive(int value) {
   FWK_ASSERT(value > 0, "value > 0");
}

TEST(FwkAssertDeathTest, NamesConditionExplanationAndFunctionAndExplainsOnlyWhenFailing) {
   int built = 0;
   const auto explain = [&] { return ++built; };
   FWK_ASSERT_MSG(built == 0, "built == 0", explain());
   EXPECT_EQ(built, 0);
   EXPECT_DEATH(checkBelowThree(7), "assertion failed: value < 3.*value was 7.*in checkBelowThree");
   EXPECT_DEATH(checkPositive(0), "assertion failed: value > 0.*in checkPositive");
}

}  // namespace
}  // namespace Test
