#include "Asic/FirstFreeIndexAllocator.h"

#include <algorithm>
#include <bit>
#include <mutex>
#include <stdexcept>

namespace Asic {

namespace {
constexpr std::uint64_t kAllOnes = ~std::uint64_t{0};
constexpr std::size_t wordsFor(std::uint64_t bits) { return (bits + 63) / 64; }
}  // namespace

FirstFreeIndexAllocator::FirstFreeIndexAllocator(std::string name) : name_(std::move(name)) {}

FirstFreeIndexAllocator::~FirstFreeIndexAllocator() { underDestructionIs(); }

void FirstFreeIndexAllocator::numIndicesIs(std::uint32_t n) {
   if (n == numIndices_) {
      return;
   }
   const std::uint32_t keep = std::max<std::uint32_t>(n, static_cast<std::uint32_t>(owners_.size()));
   if (keep > owners_.size()) {
      taken_.resize(wordsFor(keep), 0);
      heldBack_.resize(wordsFor(keep), 0);
      fullWords_.resize(wordsFor(taken_.size()), 0);
      owners_.resize(keep);
   }
   numIndices_ = n;
   notify("numIndices");
}

bool FirstFreeIndexAllocator::bitSet(const std::vector<std::uint64_t>& bits,
                                     Index i) const noexcept {
   return i / 64 < bits.size() && ((bits[i / 64] >> (i % 64)) & 1U);
}

void FirstFreeIndexAllocator::markTaken(Index i) noexcept {
   std::uint64_t& word = taken_[i / 64];
   word |= std::uint64_t{1} << (i % 64);
   if (word == kAllOnes) {
      std::uint64_t& summary = fullWords_[i / 64 / 64];
      summary |= std::uint64_t{1} << (i / 64 % 64);
      while (firstOpenSummary_ < fullWords_.size() && fullWords_[firstOpenSummary_] == kAllOnes) {
         ++firstOpenSummary_;
      }
   }
}

void FirstFreeIndexAllocator::markFree(Index i) noexcept {
   taken_[i / 64] &= ~(std::uint64_t{1} << (i % 64));
   fullWords_[i / 64 / 64] &= ~(std::uint64_t{1} << (i / 64 % 64));
   firstOpenSummary_ = std::min<std::size_t>(firstOpenSummary_, i / 64 / 64);
}

Index FirstFreeIndexAllocator::lowestFree() const noexcept {
   for (std::size_t s = firstOpenSummary_; s < fullWords_.size(); ++s) {
      if (fullWords_[s] == kAllOnes) {
         continue;
      }
      const std::size_t w = s * 64 + static_cast<std::size_t>(std::countr_one(fullWords_[s]));
      if (w >= taken_.size()) {
         break;
      }
      const std::uint64_t i = w * 64 + static_cast<std::uint64_t>(std::countr_one(taken_[w]));
      return i < numIndices_ ? static_cast<Index>(i) : kInvalidIndex;
   }
   return kInvalidIndex;
}

void FirstFreeIndexAllocator::bind(Index i, const GenericKey& key) {
   if (bitSet(heldBack_, i)) {
      heldBack_[i / 64] &= ~(std::uint64_t{1} << (i % 64));
      --heldBackCount_;
   } else {
      markTaken(i);
   }
   owners_[i] = key;
   byKey_.emplace(key, i);
   ++used_;
}

void FirstFreeIndexAllocator::unbind(Index i) noexcept {
   byKey_.erase(owners_[i]);
   owners_[i] = GenericKey{};
   markFree(i);
   --used_;
}

Index FirstFreeIndexAllocator::indexAcquire(const Fwk::TypeDescriptor& type, const void* key) {
   const GenericKey k = GenericKey::of(type, key);
   if (const auto it = byKey_.find(k); it != byKey_.end()) {
      return it->second;
   }
   const Index i = lowestFree();
   if (i != kInvalidIndex) {
      bind(i, k);
   }
   return i;
}

Index FirstFreeIndexAllocator::index(const Fwk::TypeDescriptor& type, const void* key) const {
   const auto it = byKey_.find(GenericKey::of(type, key));
   return it == byKey_.end() ? kInvalidIndex : it->second;
}

std::optional<GenericKey> FirstFreeIndexAllocator::owner(Index index) const {
   if (index >= owners_.size() || owners_[index].type == nullptr) {
      return std::nullopt;
   }
   return owners_[index];
}

void FirstFreeIndexAllocator::indexRelease(const Fwk::TypeDescriptor& type, const void* key) {
   const auto it = byKey_.find(GenericKey::of(type, key));
   if (it != byKey_.end()) {
      unbind(it->second);
   }
}

bool FirstFreeIndexAllocator::recoverIndexForKey(Index index, const Fwk::TypeDescriptor& type,
                                                 const void* key) {
   if (index >= owners_.size()) {
      return false;
   }
   const GenericKey k = GenericKey::of(type, key);
   if (owners_[index].type != nullptr) {
      return owners_[index] == k;
   }
   if (byKey_.contains(k)) {
      return false;  // the key holds another index already
   }
   bind(index, k);
   return true;
}

void FirstFreeIndexAllocator::heldBackIs(Index index) {
   if (!indexManaged(index) || bitSet(taken_, index)) {
      return;
   }
   heldBack_[index / 64] |= std::uint64_t{1} << (index % 64);
   markTaken(index);
   ++heldBackCount_;
}

bool FirstFreeIndexAllocator::heldBack(Index index) const noexcept {
   return bitSet(heldBack_, index);
}

bool FirstFreeIndexAllocator::indexAvailable(Index index) const noexcept {
   return !bitSet(taken_, index);  // beyond the storage nothing is taken
}

void FirstFreeIndexAllocator::indexAvailableIs(Index index) {
   if (index >= owners_.size()) {
      return;
   }
   if (owners_[index].type != nullptr) {
      unbind(index);
   } else if (bitSet(heldBack_, index)) {
      heldBack_[index / 64] &= ~(std::uint64_t{1} << (index % 64));
      --heldBackCount_;
      markFree(index);
   }
}

std::vector<Index> FirstFreeIndexAllocator::indicesBoundTo(const Fwk::TypeDescriptor& type) const {
   std::vector<Index> indices;
   for (Index i = 0; i < owners_.size(); ++i) {
      if (owners_[i].type == &type) {
         indices.push_back(i);
      }
   }
   return indices;
}

bool FirstFreeIndexAllocator::hasTable(const SwTable* table) const noexcept {
   return std::find(tables_.begin(), tables_.end(), table) != tables_.end();
}

void FirstFreeIndexAllocator::tableIs(const SwTable* table) {
   if (!hasTable(table)) {
      tables_.push_back(table);
   }
}

void FirstFreeIndexAllocator::tableDel(const SwTable* table) noexcept { std::erase(tables_, table); }

void GenericIndexAllocator::releaseIndexFromTable(FirstFreeIndexAllocator& allocator,
                                                  const Fwk::TypeDescriptor& keyType,
                                                  const void* key, const SwTable* /*table*/) {
   allocator.indexRelease(keyType, key);
}

namespace {
struct SharedAllocators {
   std::mutex mutex;
   std::unordered_map<const Fwk::TypeDescriptor*, GenericIndexAllocatorStub::Factory> factories;
   std::unordered_map<const Fwk::TypeDescriptor*, Fwk::Ptr<FirstFreeIndexAllocator>> allocators;
};
SharedAllocators& shared() {
   static SharedAllocators s;
   return s;
}
}  // namespace

Fwk::Ptr<FirstFreeIndexAllocator> GenericIndexAllocatorStub::createSharedAllocator(
    const Fwk::TypeDescriptor& /*tableType*/, const Fwk::TypeDescriptor& allocatorType,
    SwTable* table) {
   auto& s = shared();
   const std::lock_guard lock(s.mutex);
   auto& allocator = s.allocators[&allocatorType];
   if (!allocator) {
      const auto factory = s.factories.find(&allocatorType);
      if (factory == s.factories.end()) {
         s.allocators.erase(&allocatorType);
         throw std::invalid_argument("no factory for shared allocator type " +
                                     std::string(allocatorType.name()));
      }
      allocator = factory->second();
   }
   allocator->tableIs(table);
   return allocator;
}

void GenericIndexAllocatorStub::freeSharedAllocator(const Fwk::TypeDescriptor& /*tableType*/,
                                                    const Fwk::TypeDescriptor& allocatorType,
                                                    SwTable* table) {
   auto& s = shared();
   const std::lock_guard lock(s.mutex);
   const auto it = s.allocators.find(&allocatorType);
   if (it == s.allocators.end()) {
      return;
   }
   it->second->tableDel(table);
   if (it->second->tables() == 0) {
      s.allocators.erase(it);
   }
}

void GenericIndexAllocatorStub::factoryIs(const Fwk::TypeDescriptor& allocatorType,
                                          Factory factory) {
   auto& s = shared();
   const std::lock_guard lock(s.mutex);
   s.factories[&allocatorType] = factory;
}

Fwk::Ptr<FirstFreeIndexAllocator> GenericIndexAllocatorStub::sharedAllocator(
    const Fwk::TypeDescriptor& allocatorType) {
   auto& s = shared();
   const std::lock_guard lock(s.mutex);
   const auto it = s.allocators.find(&allocatorType);
   return it == s.allocators.end() ? nullptr : it->second;
}

}  // namespace Asic
