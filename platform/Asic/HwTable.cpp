#include "Asic/HwTable.h"

namespace Asic {

const char* IndexUserTracker::opTypeName(OpType op) noexcept {
   switch (op) {
      case acquire: return "acquire";
      case refill: return "refill";
      case release: return "release";
      case empty: return "empty";
      case releaseEmpty: return "releaseEmpty";
   }
   return "invalid";
}

void IndexUserTracker::update(Index index, OpType op) {
   ++operations_.at(op);
   switch (op) {
      case acquire: userAdd(index); break;
      case release:
      case releaseEmpty: userDel(index); break;
      case refill:
      case empty: break;
   }
}

std::uint32_t IndexUserTracker::users(Index index) const noexcept {
   if (index < users_.size()) {
      return users_[index];
   }
   const auto it = usersBeyond_.find(index);
   return it == usersBeyond_.end() ? 0 : it->second;
}

void IndexUserTracker::userAdd(Index index) {
   std::uint32_t& count = index < users_.size() ? users_[index] : usersBeyond_[index];
   if (count++ == 0) {
      ++indicesInUse_;
   }
}

void IndexUserTracker::userDel(Index index) noexcept {
   if (users(index) == 0) {
      ++underflows_;
      return;
   }
   if (index < users_.size()) {
      if (--users_[index] == 0) {
         --indicesInUse_;
      }
   } else if (const auto it = usersBeyond_.find(index); --it->second == 0) {
      usersBeyond_.erase(it);
      --indicesInUse_;
   }
}

void IndexUserTracker::Stub::deleteTracker(HwTable* hwTable, int /*unit*/, bool /*force*/) {
   if (hwTable) {
      hwTable->tracker_ = nullptr;
      hwTable->notify("indexUserTracker");
   }
}

HwTable::HwTable(std::string name, std::uint32_t size)
    : name_(std::move(name)), size_(size), tracker_(Fwk::make<IndexUserTracker>(size)) {}

}  // namespace Asic
