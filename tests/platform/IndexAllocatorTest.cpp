// The first-free index allocator, the shared-allocator registry and the index-user tracker.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <set>

#include "Asic/FirstFreeIndexAllocator.h"
#include "Asic/HwTable.h"
#include "TalvikL3Decap/IngL3IifDecapTable.h"

namespace Test {
namespace {

using Asic::Index;
using Asic::kInvalidIndex;
using TalvikL3Common::L3TunnelIntfKey;

// A second key type: keys of two tables with equal bits are different keys.
struct OtherKey {
   static constexpr std::string_view kTypeName = "Test::OtherKey";
   std::uint64_t bits = 0;
   friend std::ostream& operator<<(std::ostream& os, const OtherKey& k) { return os << k.bits; }
};

class AllocatorTest : public ::testing::Test {
 protected:
   void size(std::uint32_t n) { allocator->numIndicesIs(n); }
   Index acquire(std::uint64_t key) {
      const L3TunnelIntfKey k(key);
      return allocator->indexAcquire(Fwk::typeOf<L3TunnelIntfKey>(), &k);
   }
   Index indexOf(std::uint64_t key) const {
      const L3TunnelIntfKey k(key);
      return allocator->index(Fwk::typeOf<L3TunnelIntfKey>(), &k);
   }
   void release(std::uint64_t key) {
      const L3TunnelIntfKey k(key);
      allocator->indexRelease(Fwk::typeOf<L3TunnelIntfKey>(), &k);
   }
   bool recover(Index i, std::uint64_t key) {
      const L3TunnelIntfKey k(key);
      return allocator->recoverIndexForKey(i, Fwk::typeOf<L3TunnelIntfKey>(), &k);
   }
   Fwk::Ptr<Asic::FirstFreeIndexAllocator> allocator =
       Fwk::make<Asic::FirstFreeIndexAllocator>("test");
};

// A key wider than 64 bits: keys that share their first eight bytes are still different keys,
// each found again, released and reported whole.
struct WideKey {
   static constexpr std::string_view kTypeName = "Test::WideKey";
   std::uint64_t site = 7;
   std::uint64_t tunnel = 0;
   friend std::ostream& operator<<(std::ostream& os, const WideKey& k) {
      return os << k.site << "/" << k.tunnel;
   }
};

TEST_F(AllocatorTest, WideKeysAreKnownByAllTheirBytes) {
   size(8);
   const std::vector<WideKey> keys{{7, 0}, {7, 1}, {7, 2}, {7, 3}, {7, 9}};
   const auto ref = [&](std::size_t i) { return Asic::KeyRef::of(keys[i]); };  // borrows keys[i]
   for (std::size_t i = 0; i < 4; ++i) {
      EXPECT_EQ(allocator->indexAcquire(ref(i)), i);
   }
   EXPECT_EQ(allocator->index(ref(2)), 2U);
   EXPECT_EQ(allocator->index(Fwk::typeOf<WideKey>(), &keys[3]), 3U);
   allocator->indexRelease(ref(1));
   EXPECT_EQ(allocator->index(ref(1)), kInvalidIndex);
   EXPECT_EQ(allocator->index(ref(2)), 2U);
   EXPECT_FALSE(allocator->recoverIndexForKey(2, ref(4)));
   EXPECT_TRUE(allocator->recoverIndexForKey(1, ref(4)));
   EXPECT_EQ(allocator->ownerKey<WideKey>(1)->tunnel, 9U);
   EXPECT_EQ(allocator->owner(1)->text(), "7/9");
   EXPECT_NE(allocator->owner(1), allocator->owner(2));
   EXPECT_EQ(allocator->ownerKey<L3TunnelIntfKey>(1), std::nullopt);
   EXPECT_EQ(acquire(1), 4U);  // a 64-bit key beside them
}

// A read-back row's index is held until its key claims the row or the purge gives it back,
// whatever its key does meanwhile.
TEST_F(AllocatorTest, AReadBackRowIsHeldUntilClaimedOrPurged) {
   size(8);
   for (Index i : {0U, 1U, 3U}) {
      allocator->heldBackIs(i);
   }
   EXPECT_EQ(allocator->heldBackIndices(), 3U);
   EXPECT_FALSE(allocator->indexAvailable(1));
   EXPECT_EQ(acquire(10), 2U);
   EXPECT_EQ(acquire(11), 4U);
   EXPECT_TRUE(recover(1, 12));  // bound to its key, not yet claimed
   release(12);
   EXPECT_EQ(acquire(13), 5U);  // still held: no other key gets it
   EXPECT_TRUE(recover(1, 12));
   allocator->heldBackDel(1);  // claimed: an ordinary binding from now on
   release(12);
   EXPECT_EQ(acquire(14), 1U);
   allocator->indexAvailableIs(0);  // purged
   EXPECT_EQ(acquire(15), 0U);
   allocator->heldBackIs(2);  // bound already: not held back
   EXPECT_FALSE(allocator->heldBack(2));
   EXPECT_EQ(allocator->heldBackIndices(), 1U);
   EXPECT_EQ(allocator->totalUsedIndices(), 5U);
}

TEST_F(AllocatorTest, RecoverBindsOnlyFreeOrOwnIndices) {
   size(8);
   acquire(1);  // index 0
   EXPECT_TRUE(recover(0, 1));
   EXPECT_FALSE(recover(0, 2));  // another key holds it
   EXPECT_EQ(allocator->owner(0)->bits, 1U);
   EXPECT_FALSE(recover(5, 1));  // the key holds another index
   EXPECT_FALSE(recover(8, 2));  // outside the index space
   EXPECT_TRUE(recover(5, 2));
   EXPECT_EQ(indexOf(2), 5U);
   EXPECT_EQ(acquire(3), 1U);
   allocator->indexAvailableIs(5);
   EXPECT_EQ(indexOf(2), kInvalidIndex);
   EXPECT_TRUE(allocator->indexAvailable(5));
   EXPECT_EQ(allocator->totalUsedIndices(), 2U);
}

TEST_F(AllocatorTest, ManagedIndicesFollowTheSize) {
   size(10);
   for (std::uint64_t key = 0; key < 10; ++key) {
      acquire(key);
   }
   EXPECT_TRUE(allocator->indexManaged(9));
   EXPECT_FALSE(allocator->indexManaged(10));
   size(5);  // indices in use above the new size stay reachable
   EXPECT_FALSE(allocator->indexManaged(7));
   EXPECT_EQ(indexOf(7), 7U);
   release(7);
   EXPECT_EQ(acquire(20), kInvalidIndex);
   release(2);
   EXPECT_EQ(acquire(21), 2U);
   size(12);
   EXPECT_EQ(acquire(22), 7U);
   EXPECT_EQ(acquire(23), 10U);
}

class AllocatorSizeTest : public AllocatorTest,
                          public ::testing::WithParamInterface<std::uint32_t> {};

TEST_P(AllocatorSizeTest, EveryIndexOnceThenExhaustedThenReused) {
   const std::uint32_t n = GetParam();
   size(n);
   for (std::uint32_t key = 0; key < n; ++key) {
      ASSERT_EQ(acquire(key), key);
   }
   EXPECT_EQ(acquire(n - 1), n - 1);  // a key keeps its index
   EXPECT_EQ(acquire(n), kInvalidIndex);
   EXPECT_EQ(indexOf(n), kInvalidIndex);  // exhaustion binds nothing
   EXPECT_FALSE(allocator->owner(kInvalidIndex));
   const std::set<Index> released{n - 1, n / 2, 0U};
   for (Index key : released) {
      release(key);
      EXPECT_EQ(indexOf(key), kInvalidIndex);
      EXPECT_FALSE(allocator->owner(key));
   }
   std::uint64_t next = n + 1;
   for (Index i : released) {
      EXPECT_EQ(acquire(next), i);
      ASSERT_TRUE(allocator->owner(i));
      EXPECT_EQ(allocator->owner(i)->type, &Fwk::typeOf<L3TunnelIntfKey>());
      EXPECT_EQ(allocator->owner(i)->bits, next++);
   }
   EXPECT_EQ(acquire(next), kInvalidIndex);
   EXPECT_EQ(allocator->totalUsedIndices(), n);
   release(n + 1);               // index 0
   const OtherKey other{n + 1};  // same bits, another key type: another key
   EXPECT_EQ(allocator->indexAcquire(Fwk::typeOf<OtherKey>(), &other), 0U);
}

INSTANTIATE_TEST_SUITE_P(Sizes, AllocatorSizeTest,
                         ::testing::Values(1U, 63U, 64U, 65U, 100U, 4095U, 4097U, 64U * 64U + 1U));

// A million indices, all bound by recovery, then released and acquired in a pseudo-random order:
// every acquire gets the lowest free index of a model of the free set.
TEST_F(AllocatorTest, MillionIndicesStayConsistent) {
   constexpr std::uint32_t n = (1U << 20) + 37U;
   size(n);
   std::vector<std::uint64_t> keyAt(n);
   for (std::uint32_t key = 0; key < n; ++key) {
      ASSERT_TRUE(recover(key, key));
      keyAt[key] = key;
   }
   std::set<Index> free;
   std::mt19937 random(20240611);
   std::uint64_t nextKey = n;
   for (int step = 0; step < 100000 || !free.empty(); ++step) {
      if (step < 100000 && (free.empty() || random() % 3 != 0)) {
         const Index i = random() % n;
         if (free.insert(i).second) {
            release(keyAt[i]);
            ASSERT_TRUE(allocator->indexAvailable(i));
         }
      } else {
         ASSERT_EQ(acquire(nextKey), *free.begin()) << "step " << step;
         keyAt[*free.begin()] = nextKey++;
         free.erase(free.begin());
      }
      ASSERT_EQ(allocator->totalUsedIndices(), n - free.size());
   }
   EXPECT_EQ(acquire(nextKey), kInvalidIndex);
}

// --- the shared-allocator registry ---

class SharedA : public Asic::FirstFreeIndexAllocator {
 public:
   static constexpr std::string_view kTypeName = "Test::SharedA";
   SharedA() : FirstFreeIndexAllocator("sharedA") {}
   const Fwk::TypeDescriptor& typeData() const override { return Fwk::typeOf<SharedA>(); }
};
struct Unregistered {
   static constexpr std::string_view kTypeName = "Test::Unregistered";
};

TEST(SharedAllocatorTest, OneAllocatorPerTypeUntilNoTableUsesIt) {
   using Stub = Asic::GenericIndexAllocatorStub;
   Stub::factoryIs(Fwk::typeOf<SharedA>(), []() -> Fwk::Ptr<Asic::FirstFreeIndexAllocator> {
      return Fwk::make<SharedA>();
   });
   const auto& tableType = Fwk::typeOf<TalvikL3Decap::IngL3IifTable>();
   const auto a = TalvikL3Decap::ingL3IifTableFactory();
   const auto b = TalvikL3Decap::ingL3IifTableFactory();
   const auto first = Stub::createSharedAllocator(tableType, Fwk::typeOf<SharedA>(), a.get());
   EXPECT_EQ(&first->typeData(), &Fwk::typeOf<SharedA>());
   EXPECT_EQ(Stub::createSharedAllocator(tableType, Fwk::typeOf<SharedA>(), b.get()), first);
   EXPECT_EQ(Stub::createSharedAllocator(tableType, Fwk::typeOf<SharedA>(), b.get()), first);
   EXPECT_EQ(first->tables(), 2U);
   Stub::freeSharedAllocator(tableType, Fwk::typeOf<SharedA>(), a.get());
   EXPECT_EQ(Stub::sharedAllocator(Fwk::typeOf<SharedA>()), first);
   EXPECT_FALSE(first->hasTable(a.get()));
   Stub::freeSharedAllocator(tableType, Fwk::typeOf<SharedA>(), b.get());
   EXPECT_EQ(Stub::sharedAllocator(Fwk::typeOf<SharedA>()), nullptr);
   EXPECT_EQ(first->refCount(), 1U);
   const auto second = Stub::createSharedAllocator(tableType, Fwk::typeOf<SharedA>(), a.get());
   EXPECT_NE(second, first);
   Stub::freeSharedAllocator(tableType, Fwk::typeOf<SharedA>(), a.get());
   EXPECT_THROW(Stub::createSharedAllocator(tableType, Fwk::typeOf<Unregistered>(), a.get()),
                std::invalid_argument);
   EXPECT_EQ(Stub::sharedAllocator(Fwk::typeOf<Unregistered>()), nullptr);
}

// --- the index-user tracker ---

using Op = Asic::IndexUserTracker::OpType;

// Each case's codes at index 5, then its users and underflows there.
struct TrackerCase {
   std::vector<Op> ops;
   std::uint32_t users;
   std::uint64_t underflows;
};

TEST(IndexUserTrackerTest, CountsUsersPerCode) {
   for (const auto& c :
        {TrackerCase{{Op::acquire}, 1, 0}, TrackerCase{{Op::acquire, Op::empty, Op::refill}, 1, 0},
         TrackerCase{{Op::acquire, Op::acquire, Op::release}, 1, 0},
         TrackerCase{{Op::acquire, Op::empty, Op::releaseEmpty}, 0, 0},
         TrackerCase{{Op::release, Op::releaseEmpty}, 0, 2}}) {
      const auto hwTable = Fwk::make<Asic::HwTable>("t", 8);
      auto& tracker = *hwTable->indexUserTracker();
      for (Op op : c.ops) {
         tracker.update(5, op);
      }
      EXPECT_EQ(tracker.users(5), c.users);
      EXPECT_EQ(tracker.indicesInUse(), c.users ? 1U : 0U);
      EXPECT_EQ(tracker.underflows(), c.underflows);
      EXPECT_EQ(tracker.operations(Op::acquire),
                static_cast<std::uint64_t>(std::count(c.ops.begin(), c.ops.end(), Op::acquire)));
   }
}

TEST(IndexUserTrackerTest, CountsIndicesBeyondTheTableAndEachIndexApart) {
   const auto hwTable = Fwk::make<Asic::HwTable>("t", 8);
   auto& tracker = *hwTable->indexUserTracker();
   tracker.update(3, Op::acquire);
   tracker.update(1000, Op::acquire);  // beyond the table's 8 rows
   tracker.recoveredIndexIs(1000);
   tracker.recoveredIndexIs(20);
   // The last index there is: counted like any other, without room made for every index below.
   const Asic::Index farthest = Asic::kInvalidIndex - 1;
   tracker.update(farthest, Op::acquire);
   for (const auto& [index, users] : std::map<Index, std::uint32_t>{
            {3, 1}, {1000, 2}, {20, 1}, {21, 0}, {5000, 0}, {farthest, 1}}) {
      EXPECT_EQ(tracker.users(index), users) << index;
   }
   EXPECT_EQ(tracker.indicesInUse(), 4U);
   tracker.update(1000, Op::release);
   EXPECT_EQ(tracker.indicesInUse(), 4U);
   tracker.update(1000, Op::releaseEmpty);
   tracker.update(farthest, Op::release);
   tracker.update(5000, Op::release);  // never used, beyond every index seen
   EXPECT_EQ(tracker.users(1000), 0U);
   EXPECT_EQ(tracker.users(farthest), 0U);
   EXPECT_EQ(tracker.users(5000), 0U);
   EXPECT_EQ(tracker.indicesInUse(), 2U);
   EXPECT_EQ(tracker.underflows(), 1U);
}

}  // namespace
}  // namespace Test
