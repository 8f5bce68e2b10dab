// Helpers for scenario tests of an entry's life, over every table kind (Kinds.h): profile handles
// in the usual states, the engine's trace lines without their table prefix, the index-user
// tracker, and liveness of entry handles (an entity leaves the directory when it is destroyed, so
// a named handle tells when it is gone).
#pragma once

#include <algorithm>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "Fwk/Directory.h"
#include "support/TableFixture.h"

namespace Test {

using S = Asic::SwTableBase;
using EH = Asic::SwTableBase::EntryHandle;
using HandlePtr = Fwk::Ptr<const Asic::SwTableBase::EntryHandle>;
using Calls = std::vector<std::string>;

inline Fwk::Ptr<ProfileHandle> readyProfile(Asic::Index index) {
   return ProfileHandle::make(S::success, index);
}
// A profile entry that has no index yet: entries needing it wait.
inline Fwk::Ptr<ProfileHandle> pendingProfile() {
   return ProfileHandle::make(S::unresolved, Asic::kInvalidIndex);
}
inline void makeReady(ProfileHandle& profile, Asic::Index index) {
   profile.hwIndexIs(index);
   profile.entryStateIs(S::success);
}
// An entry's text form, as trace lines and notifications show it.
template <class Entry>
std::string entryText(const Entry& entry) {
   std::ostringstream os;
   os << entry;
   return os.str();
}
// Names the handle so that `alive` can tell whether it still exists; returns the name.
std::string track(const HandlePtr& handle);
bool alive(const std::string& name);
// A death-test pattern matching `text` literally.
std::string literally(const std::string& text);

template <class Kind>
class Scenario : public TableFixtureOf<Kind> {
 protected:
   using Base = TableFixtureOf<Kind>;
   using typename Base::Entry;
   using typename Base::Table;
   using Engine = Asic::SwTable::Accessor<Table>;

   void SetUp() override {
      Base::SetUp();
      this->createTable(tableOptions());
   }
   virtual TableOptions tableOptions() const { return {}; }

   // Commits and delivers every acknowledgement.
   HandlePtr commitAcked(std::uint64_t key, const Entry& entry) {
      HandlePtr h = this->t().entryCommit(this->k(key), entry);
      this->util().ackAll(this->t());
      return h;
   }
   // The platform's write-response path, for tables without a Util (nothing records writes).
   bool ack(std::uint64_t key) {
      const auto kk = this->k(key);
      return this->t().writeResponseSm()->writeAcknowledged(&kk);
   }
   // The table's own (mutable) handle of a key.
   typename Table::EntryHandle& own(std::uint64_t key) {
      const auto* slot = this->t().entryHandleMap().find(this->k(key));
      if (slot == nullptr) {
         throw std::out_of_range("no entry handle for key " + std::to_string(key));
      }
      return **slot;
   }
   // Users of a key's handle, without taking a reference.
   std::uint32_t users(std::uint64_t key) { return own(key).refCount(); }

   // Engine trace lines as "<step><text>", in order.
   std::vector<std::string> steps() const {
      const std::string prefix = std::string(Table::kTypeName) + " : ";
      std::vector<std::string> out;
      for (const auto& line : this->traces()) {
         out.push_back(line.starts_with(prefix) ? line.substr(prefix.size()) : line);
      }
      return out;
   }
   bool traced(const std::string& step) const {
      const auto all = steps();
      return std::find(all.begin(), all.end(), step) != all.end();
   }
   // The traced lines that are among `wanted`, in trace order (checks order and repetitions).
   std::vector<std::string> tracedAmong(const std::vector<std::string>& wanted) const {
      std::vector<std::string> out;
      for (const auto& s : steps()) {
         if (std::find(wanted.begin(), wanted.end(), s) != wanted.end()) {
            out.push_back(s);
         }
      }
      return out;
   }
   // Lines with keys shown as their number, e.g. an observer's changes.
   static std::vector<std::string> plain(std::vector<std::string> lines) {
      for (auto& line : lines) {
         line = Kind::plainKeys(std::move(line));
      }
      return lines;
   }

   Asic::IndexUserTracker& tracker() { return *this->hwTable->indexUserTracker(); }
};

}  // namespace Test
