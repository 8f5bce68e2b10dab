// The table's keyed collections and single attributes: what each mutator creates, replaces or
// deletes, whether entry processing runs, and what observers are told, in which order.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <tuple>

#include "Fwk/Errors.h"
#include "Fwk/Singleton.h"
#include "support/TableFixture.h"

namespace Test {
namespace {

using S = Asic::SwTableBase;
using Opt = std::optional<Entry>;
using Changes = std::vector<std::string>;
using ::testing::UnorderedElementsAre;

auto fields(const Opt& e) {
   return e ? std::optional(Test::fields(*e)) : std::nullopt;
}

Entry value(std::uint32_t vrf, std::uint8_t profileIndex) {
   return Entry(nullptr, profileIndex, true, false, false, vrf);
}

// Calls `probe` at every change of `attribute`, while the mutator that published it runs.
class ProbeObserver : public Fwk::Observer {
 public:
   ProbeObserver(const Fwk::Entity& entity, std::string attribute, std::function<void()> probe)
       : entity_(entity), attribute_(std::move(attribute)), probe_(std::move(probe)) {
      entity_.publisher().observerIs(this);
   }
   ~ProbeObserver() override { entity_.publisher().observerDel(this); }
   void onChange(const Fwk::Change& change) override {
      if (change.attribute == attribute_) {
         probe_();
      }
   }

 private:
   const Fwk::Entity& entity_;
   std::string attribute_;
   std::function<void()> probe_;
};

// Without a Util entry processing touches no hardware; it still acquires and releases the key's
// index, and its trace line shows each run.
class CollectionsTest : public TableFixture {
 protected:
   void SetUp() override {
      TableFixture::SetUp();
      createTable({.withUtil = false});
   }
   std::size_t handleEntryRuns() const { return tracesContaining("handleEntry key: ").size(); }
};

// --- instantiating collections: create if absent, never replace ---

struct InstantiatingCollection {
   const char* name;
   std::function<Fwk::Ptr<Fwk::Entity>(IngL3IifTable&, L3TunnelIntfKey)> is, del, get;
   std::function<void(IngL3IifTable&)> delAll;
   std::function<std::uint32_t(const IngL3IifTable&)> count;
};

class InstantiatingCollectionTest : public CollectionsTest,
                                    public ::testing::WithParamInterface<InstantiatingCollection> {
};

TEST_P(InstantiatingCollectionTest, CreatesOnceAndNotifiesEachMembershipChange) {
   const auto& c = GetParam();
   const std::string member = std::string(c.name) + "[5]";
   Fwk::RecordingObserver obs(t());
   const auto created = c.is(t(), k(5));
   ASSERT_TRUE(created);
   EXPECT_EQ(c.is(t(), k(5)), created);
   EXPECT_EQ(obs.changes(), Changes{member});
   EXPECT_EQ(c.del(t(), k(6)), nullptr);
   EXPECT_EQ(c.del(t(), k(5)), created);
   EXPECT_EQ(c.get(t(), k(5)), nullptr);
   EXPECT_EQ(obs.changes(), (Changes{member, member}));
   for (std::uint64_t key : {1, 2, 3}) {
      c.is(t(), k(key));
   }
   obs.clear();
   c.delAll(t());
   EXPECT_EQ(c.count(t()), 0U);
   const std::string name = c.name;
   EXPECT_THAT(obs.changes(), UnorderedElementsAre(name + "[1]", name + "[2]", name + "[3]"));
}

INSTANTIATE_TEST_SUITE_P(
    Collections, InstantiatingCollectionTest,
    ::testing::Values(
        InstantiatingCollection{
            "unresolvedEntry",
            [](IngL3IifTable& t, L3TunnelIntfKey key) { return t.unresolvedEntryIs(key); },
            [](IngL3IifTable& t, L3TunnelIntfKey key) { return t.unresolvedEntryDel(key); },
            [](IngL3IifTable& t, L3TunnelIntfKey key) { return t.unresolvedEntry(key); },
            [](IngL3IifTable& t) { t.unresolvedEntryDelAll(); },
            [](const IngL3IifTable& t) { return t.unresolvedEntrys(); }},
        InstantiatingCollection{
            "entryHandle",
            [](IngL3IifTable& t, L3TunnelIntfKey key) { return t.entryHandleIs(key, &t); },
            [](IngL3IifTable& t, L3TunnelIntfKey key) { return t.entryHandleDel(key); },
            [](IngL3IifTable& t, L3TunnelIntfKey key) { return t.entryHandle(key); },
            [](IngL3IifTable& t) { t.entryHandleDelAll(); },
            [](const IngL3IifTable& t) { return t.entrys(); }}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(CollectionsTest, NewMembersRecordKeyTableAndDefaults) {
   const auto ue = t().unresolvedEntryIs(k(5));
   EXPECT_EQ(ue->key(), k(5));
   EXPECT_EQ(ue->swTable(), &t());
   EXPECT_EQ(fields(ue->entry), fields(Entry()));
   const auto h = t().entryHandleIs(k(5), &t());
   EXPECT_EQ(h->key(), k(5));
   EXPECT_EQ(h->swTable(), &t());
   EXPECT_EQ(h->entryType(), S::EntryHandle::unset);
   t().resolvedEntryIs(k(6), value(1, 1));
   EXPECT_EQ(t().entrys(), 1U);  // handles only, resolved or not
}

TEST_F(CollectionsTest, EntryHandleOfAnotherTableIsRefusedAndLeftAsItWas) {
   const auto h = t().entryHandleIs(k(5), &t());
   const auto other = TalvikL3Decap::ingL3IifTableFactory();
   Fwk::RecordingObserver obs(t());
   EXPECT_THROW(t().entryHandleIs(k(5), other.get()), Fwk::ReinstantiationError);
   EXPECT_EQ(t().entryHandle(k(5)), h);
   EXPECT_EQ(h->swTable(), &t());
   EXPECT_EQ(t().entrys(), 1U);
   EXPECT_TRUE(obs.changes().empty());
}

// A value that resolves at once leaves its unresolved entry for the next write to reuse. The next
// write's entry reads as new (its key, a default value) and is published as before; one that
// someone still holds is never reused.
TEST_F(CollectionsTest, UnresolvedEntriesOfImmediateWritesReadAsNew) {
   Fwk::Ptr<IngL3IifTable::UnresolvedEntry> held;
   std::vector<std::pair<L3TunnelIntfKey, Opt>> atInsertion;
   ProbeObserver probe(t(), "unresolvedEntry", [&] {
      for (std::uint64_t key : {5, 6, 7}) {
         if (const auto ue = t().unresolvedEntry(k(key))) {
            atInsertion.emplace_back(ue->key(), ue->entry);
            if (key == 5) {
               held = ue;
            }
         }
      }
   });
   Fwk::RecordingObserver obs(t());
   t().entryCommit(k(5), value(1, 3));
   t().entryCommit(k(6), value(2, 4));
   t().entryCommit(k(7), value(3, 5));
   ASSERT_EQ(atInsertion.size(), 3U);
   for (std::size_t i = 0; i < atInsertion.size(); ++i) {
      EXPECT_EQ(atInsertion[i].first, k(5 + i));
      EXPECT_EQ(fields(atInsertion[i].second), fields(Entry()));
   }
   ASSERT_TRUE(held);
   EXPECT_EQ(held->key(), k(5));
   EXPECT_EQ(fields(held->entry), fields(value(1, 3)));
   EXPECT_EQ(t().unresolvedEntrys(), 0U);
   EXPECT_EQ(std::count(obs.changes().begin(), obs.changes().end(), "unresolvedEntry[6]"), 2);
   EXPECT_EQ(fields(t().entry(k(7))), fields(value(3, 5)));
}

// --- resolved entries ---

struct ResolvedCase {
   const char* name;
   std::optional<Opt> before;  // nullopt: the key is absent
   Opt value;
   bool changes;
   Opt after;
};

class ResolvedEntryIsTest : public CollectionsTest,
                            public ::testing::WithParamInterface<ResolvedCase> {};

TEST_P(ResolvedEntryIsTest, ChangesRunProcessingThenNotify) {
   const auto& c = GetParam();
   if (c.before) {
      t().resolvedEntryIs(k(5), *c.before);
   }
   clearTraces();
   Fwk::RecordingObserver obs(t());
   t().resolvedEntryIs(k(5), c.value);
   ASSERT_NE(t().resolvedEntry(k(5)), nullptr);
   EXPECT_EQ(fields(*t().resolvedEntry(k(5))), fields(c.after));
   EXPECT_EQ(handleEntryRuns(), c.changes ? 1U : 0U);
   EXPECT_EQ(obs.changes(), c.changes ? Changes{"resolvedEntry[5]"} : Changes{});
}

INSTANTIATE_TEST_SUITE_P(
    Transitions, ResolvedEntryIsTest,
    ::testing::Values(
        ResolvedCase{"AbsentTakesValue", std::nullopt, value(1, 3), true, value(1, 3)},
        ResolvedCase{"AbsentTakesEmpty", std::nullopt, Opt(), true, Opt()},
        ResolvedCase{"DependentFieldAloneIsNotStored", value(1, 3), value(1, 9), false,
                     value(1, 3)},
        ResolvedCase{"OtherValueReplacesAllFields", value(1, 3), value(2, 9), true, value(2, 9)},
        ResolvedCase{"ValueBecomesEmpty", value(1, 3), Opt(), true, Opt()},
        ResolvedCase{"EmptyStaysEmpty", Opt(), Opt(), false, Opt()},
        ResolvedCase{"EmptyTakesValue", Opt(), value(2, 9), true, value(2, 9)}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(CollectionsTest, ResolvedEntryIsWithTheStoredObjectDoesNothing) {
   t().resolvedEntryIs(k(5), value(1, 3));
   clearTraces();
   Fwk::RecordingObserver obs(t());
   t().resolvedEntryIs(k(5), *t().resolvedEntry(k(5)));
   EXPECT_EQ(handleEntryRuns(), 0U);
   EXPECT_TRUE(obs.changes().empty());
}

TEST_F(CollectionsTest, ObserversSeeTheResolvedEntryAlreadyProcessed) {
   std::vector<Asic::Index> indexAtNotification;
   ProbeObserver probe(t(), "resolvedEntry", [&] { indexAtNotification.push_back(indexOf(5)); });
   t().resolvedEntryIs(k(5), value(1, 3));
   t().resolvedEntryDel(k(5));
   EXPECT_EQ(indexAtNotification, (std::vector<Asic::Index>{0, Asic::kInvalidIndex}));
}

TEST_F(CollectionsTest, ResolvedEntryDelProcessesOnlyPresentKeys) {
   t().resolvedEntryIs(k(5), Opt());
   t().resolvedEntryIs(k(6), value(4, 2));
   clearTraces();
   Fwk::RecordingObserver obs(t());
   EXPECT_EQ(t().resolvedEntryDel(k(7)), std::nullopt);
   EXPECT_EQ(handleEntryRuns(), 0U);
   EXPECT_TRUE(obs.changes().empty());
   EXPECT_EQ(t().resolvedEntryDel(k(5)), std::nullopt);
   EXPECT_EQ(fields(t().resolvedEntryDel(k(6))), fields(value(4, 2)));
   EXPECT_EQ(handleEntryRuns(), 2U);
   EXPECT_EQ(obs.changes(), (Changes{"resolvedEntry[5]", "resolvedEntry[6]"}));
   EXPECT_FALSE(t().resolvedEntryHas(k(5)));
}

TEST_F(CollectionsTest, ResolvedEntryDelAllProcessesEveryKey) {
   for (std::uint32_t key = 1; key <= 3; ++key) {
      t().resolvedEntryIs(k(key), value(key, 0));
   }
   clearTraces();
   Fwk::RecordingObserver obs(t());
   t().resolvedEntryDelAll();
   EXPECT_EQ(handleEntryRuns(), 3U);
   EXPECT_THAT(obs.changes(),
               UnorderedElementsAre("resolvedEntry[1]", "resolvedEntry[2]", "resolvedEntry[3]"));
   EXPECT_EQ(t().resolvedEntrys(), 0U);
}

// A key looked up, erased and made again reads as each step left it, also when other keys grew
// the collections (and rehashed them) in between.
TEST_F(CollectionsTest, LookupsFollowEraseAndReinsertOfTheSameKey) {
   const auto first = t().entryHandleIs(k(5), &t());
   t().resolvedEntryIs(k(5), value(1, 3));
   ASSERT_EQ(t().entryHandle(k(5)), first);
   ASSERT_TRUE(t().resolvedEntryHas(k(5)));
   t().resolvedEntryDel(k(5));
   t().entryHandleDel(k(5));
   EXPECT_EQ(t().entryHandle(k(5)), nullptr);
   EXPECT_FALSE(t().entryHandleHas(k(5)));
   EXPECT_EQ(t().resolvedEntry(k(5)), nullptr);
   EXPECT_FALSE(t().resolvedEntryHas(k(5)));
   const auto second = t().entryHandleIs(k(5), &t());
   t().resolvedEntryIs(k(5), value(2, 4));
   for (std::uint32_t key = 100; key < 400; ++key) {
      t().entryHandleIs(k(key), &t());
      t().resolvedEntryIs(k(key), value(key, 0));
   }
   EXPECT_EQ(t().entryHandle(k(5)), second);
   EXPECT_NE(second, first);
   ASSERT_TRUE(t().resolvedEntryHas(k(5)));
   EXPECT_EQ(fields(*t().resolvedEntry(k(5))), fields(value(2, 4)));
   t().resolvedEntryDelAll();
   t().entryHandleDelAll();
   EXPECT_FALSE(t().entryHandleHas(k(5)));
   EXPECT_FALSE(t().resolvedEntryHas(k(5)));
}

// --- single attributes ---

TEST_F(CollectionsTest, IndexAllocatorIsPublishesOnlyAChange) {
   const Fwk::Ptr<Asic::FirstFreeIndexAllocator> current = t().indexAllocator();
   Fwk::RecordingObserver obs(t());
   t().indexAllocatorIs(current);
   EXPECT_TRUE(obs.changes().empty());
   EXPECT_EQ(current->refCount(), 2U);
   const auto next = Fwk::make<Asic::FirstFreeIndexAllocator>("next");
   t().indexAllocatorIs(next);
   EXPECT_EQ(obs.changes(), Changes{"indexAllocator was " + current->entityText()});
   EXPECT_EQ(current->refCount(), 1U);
   EXPECT_EQ(next->refCount(), 2U);
}

TEST(WriteResponseSmTest, CreatedOncePerTableAndSwitchedOffWhenRemoved) {
   const auto table = TalvikL3Decap::ingL3IifTableFactory();
   const auto other = TalvikL3Decap::ingL3IifTableFactory();
   Fwk::RecordingObserver obs(*table);
   EXPECT_EQ(table->writeResponseSmDel(), nullptr);
   std::vector<bool> activeAtNotification;
   ProbeObserver probe(*table, "writeResponseSm", [&] {
      const auto& sm = table->writeResponseSm();
      activeAtNotification.push_back(sm && sm->hasNotificationActive());
   });
   const auto sm = table->writeResponseSmIs(table.get());
   Fwk::RecordingObserver smObs(*sm);
   EXPECT_EQ(table->writeResponseSmIs(table.get()), sm);
   EXPECT_TRUE(sm->hasNotificationActive());
   EXPECT_TRUE(smObs.changes().empty());
   const auto replacement = table->writeResponseSmIs(other.get());
   EXPECT_NE(replacement, sm);
   EXPECT_EQ(replacement->swTable(), other.get());
   EXPECT_TRUE(sm->hasNotificationActive());
   EXPECT_EQ(sm->refCount(), 1U);
   EXPECT_EQ(table->writeResponseSmDel(), replacement);
   EXPECT_EQ(table->writeResponseSm(), nullptr);
   EXPECT_FALSE(replacement->hasNotificationActive());
   EXPECT_EQ(obs.changes(),
             (Changes{"writeResponseSm was null", "writeResponseSm was " + sm->entityText(),
                      "writeResponseSm was " + replacement->entityText()}));
   EXPECT_EQ(activeAtNotification, (std::vector<bool>{false, false, false}));
}

// --- Util and its loader ---

TEST_F(CollectionsTest, UtilMapsDependentFieldsAndHandlesToHardwareIndices) {
   EXPECT_EQ(t().util(), nullptr);
   createTable();
   ASSERT_EQ(t().util(), &util());
   const IngL3IifTable::Util& u = util();
   const auto h = t().entryHandleIs(k(5), &t());
   for (Asic::Index i : {0U, 7U, Asic::kInvalidIndex}) {
      EXPECT_EQ(u.IngL3IifTable::Util::dependentFieldValueToHwIndex(i), i);
      h->hwIndexIs(i);
      const Fwk::Ptr<const S::EntryHandle> hdl = h;
      EXPECT_EQ(u.hwIndexForDependentField(hdl), i);
      EXPECT_EQ(u.getHwIndex(hdl), i);
   }
}

TEST(UtilLoaderTest, OneLoaderPerProcessNamedAfterTheTablePlugin) {
   using Loader = IngL3IifTable::UtilLoader;
   const auto loader = Loader::loaderSingletonIs();
   EXPECT_EQ(Loader::loaderSingletonIs(), loader);
   EXPECT_EQ(Fwk::Singletons::singleton(Loader::kSingletonName).get(), loader.get());
   EXPECT_EQ(loader->name(), Loader::kSingletonName);
   EXPECT_EQ(loader->prefixPath(), "AsicFeature");
   EXPECT_EQ(loader->suffixPath(), "TalvikL3Decap::IngL3IifTable");
   EXPECT_NE(loader->loadStatus(), Asic::LoaderSingleton::LoadStatus::notLoaded);
}

}  // namespace
}  // namespace Test
