#include "Asic/FirstFreeIndexAllocator.h"

#include <algorithm>
#include <bit>
#include <mutex>
#include <stdexcept>

namespace Asic {

namespace {
constexpr std::uint64_t kAllOnes = ~std::uint64_t{0};
constexpr std::size_t wordsFor(std::uint64_t bits) {
   return (bits + 63) / 64;
}
}  // namespace

FirstFreeIndexAllocator::FirstFreeIndexAllocator(std::string name) : name_(std::move(name)) {}

FirstFreeIndexAllocator::~FirstFreeIndexAllocator() {
   underDestructionIs();
}

void FirstFreeIndexAllocator::numIndicesIs(std::uint32_t n) {
   if (n == numIndices_) {
      return;
   }
   const std::uint32_t keep =
       std::max<std::uint32_t>(n, static_cast<std::uint32_t>(ownerTypes_.size()));
   if (keep > ownerTypes_.size()) {
      taken_.resize(wordsFor(keep), 0);
      heldBack_.resize(wordsFor(keep), 0);
      fullWords_.resize(wordsFor(taken_.size()), 0);
      ownerTypes_.resize(keep, kNoKeyType);
      ownerBits_.resize(keep, 0);
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

std::uint32_t FirstFreeIndexAllocator::keyTypeNumber(
    const Fwk::TypeDescriptor& type) const noexcept {
   const auto it = std::find(keyTypes_.begin(), keyTypes_.end(), &type);
   return it == keyTypes_.end() ? kNoKeyType
                                : static_cast<std::uint32_t>(it - keyTypes_.begin()) + 1;
}

std::uint32_t FirstFreeIndexAllocator::keyTypeNumberIs(const Fwk::TypeDescriptor& type) {
   const std::uint32_t number = keyTypeNumber(type);
   if (number != kNoKeyType) {
      return number;
   }
   keyTypes_.push_back(&type);
   wideKeys_.emplace_back();
   return static_cast<std::uint32_t>(keyTypes_.size());
}

const std::byte* FirstFreeIndexAllocator::wideKeyAt(std::uint32_t type, Index i) const noexcept {
   if (type == kNoKeyType || !keyTypes_[type - 1]->wideKey()) {
      return nullptr;
   }
   return wideKeys_[type - 1].data() + std::size_t{i} * keyTypes_[type - 1]->keySize();
}

bool FirstFreeIndexAllocator::sameWideKey(Index i, const OwnerKey& key) const noexcept {
   return std::memcmp(wideKeyAt(key.type, i), key.wide, keyTypes_[key.type - 1]->keySize()) == 0;
}

void FirstFreeIndexAllocator::bind(Index i, const OwnerKey& key) {
   if (key.wide != nullptr) {
      const std::size_t size = keyTypes_[key.type - 1]->keySize();
      std::vector<std::byte>& bytes = wideKeys_[key.type - 1];
      if (bytes.size() < ownerTypes_.size() * size) {
         bytes.resize(ownerTypes_.size() * size);
      }
      std::memcpy(bytes.data() + std::size_t{i} * size, key.wide, size);
   }
   if (!bitSet(heldBack_, i)) {
      markTaken(i);
   }
   ownerTypes_[i] = key.type;
   ownerBits_[i] = key.bits;
   const auto hashTop = static_cast<std::uint32_t>(ByKeyTraits::hash(key) >> 32);
   byKey_.insert({i, hashTop});
   ++used_;
}

void FirstFreeIndexAllocator::unbind(Index i) noexcept {
   byKey_.erase(ownerKeyAt(i));
   ownerTypes_[i] = kNoKeyType;
   ownerBits_[i] = 0;
   if (!bitSet(heldBack_, i)) {
      markFree(i);
   }
   --used_;
}

Index FirstFreeIndexAllocator::indexAcquire(const KeyRef& key) {
   const OwnerKey owner = ownerKeyOf(keyTypeNumberIs(*key.type), key);
   if (const Index bound = boundIndex(owner); bound != kInvalidIndex) {
      return bound;
   }
   const Index i = lowestFree();
   if (i != kInvalidIndex) {
      bind(i, owner);
   }
   return i;
}

Index FirstFreeIndexAllocator::index(const KeyRef& key) const {
   const std::uint32_t number = keyTypeNumber(*key.type);
   return number == kNoKeyType ? kInvalidIndex : boundIndex(ownerKeyOf(number, key));
}

Index FirstFreeIndexAllocator::boundIndex(const OwnerKey& key) const {
   const ByKeyTraits::Slot* slot = byKey_.find(key);
   return slot ? slot->index : kInvalidIndex;
}

std::optional<GenericKey> FirstFreeIndexAllocator::owner(Index index) const {
   if (index >= ownerTypes_.size() || ownerTypes_[index] == kNoKeyType) {
      return std::nullopt;
   }
   const std::uint32_t type = ownerTypes_[index];
   GenericKey key(keyTypes_[type - 1], ownerBits_[index]);
   if (const std::byte* wide = wideKeyAt(type, index)) {
      key.wide.assign(wide, wide + key.type->keySize());
   }
   return key;
}

void FirstFreeIndexAllocator::indexRelease(const KeyRef& key) {
   const Index i = index(key);
   if (i != kInvalidIndex) {
      unbind(i);
   }
}

bool FirstFreeIndexAllocator::recoverIndexForKey(Index index, const KeyRef& key) {
   if (index >= ownerTypes_.size()) {
      return false;
   }
   const OwnerKey owner = ownerKeyOf(keyTypeNumberIs(*key.type), key);
   if (ownerTypes_[index] != kNoKeyType) {
      return ownedBy(index, owner);
   }
   if (boundIndex(owner) != kInvalidIndex) {
      return false;  // the key holds another index already
   }
   bind(index, owner);
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

void FirstFreeIndexAllocator::heldBackDel(Index index) noexcept {
   if (!bitSet(heldBack_, index)) {
      return;
   }
   heldBack_[index / 64] &= ~(std::uint64_t{1} << (index % 64));
   --heldBackCount_;
   if (ownerTypes_[index] == kNoKeyType) {
      markFree(index);
   }
}

bool FirstFreeIndexAllocator::indexAvailable(Index index) const noexcept {
   return !bitSet(taken_, index);  // beyond the storage nothing is taken
}

void FirstFreeIndexAllocator::indexAvailableIs(Index index) {
   if (index >= ownerTypes_.size()) {
      return;
   }
   heldBackDel(index);
   if (ownerTypes_[index] != kNoKeyType) {
      unbind(index);
   }
}

std::vector<Index> FirstFreeIndexAllocator::indicesBoundTo(const Fwk::TypeDescriptor& type) const {
   std::vector<Index> indices;
   const std::uint32_t number = keyTypeNumber(type);
   if (number == kNoKeyType) {
      return indices;
   }
   for (Index i = 0; i < ownerTypes_.size(); ++i) {
      if (ownerTypes_[i] == number) {
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

void FirstFreeIndexAllocator::tableDel(const SwTable* table) noexcept {
   std::erase(tables_, table);
}

void GenericIndexAllocator::releaseIndexFromTable(FirstFreeIndexAllocator& allocator,
                                                  const KeyRef& key, const SwTable* /*table*/) {
   allocator.indexRelease(key);
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
