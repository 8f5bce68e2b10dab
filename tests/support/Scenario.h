// Helpers for scenario tests of an entry's life: profile handles in the usual states, the engine's
// trace lines without their table prefix, the index-user tracker, and liveness of entry handles
// (an entity leaves the directory when it is destroyed, so a named handle tells when it is gone).
#pragma once

#include <algorithm>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "Fwk/Directory.h"
#include "support/TableFixture.h"

namespace Test {

using S = Asic::SwTableBase;
using EH = Asic::SwTableBase::EntryHandle;
using Engine = Asic::SwTable::Accessor<IngL3IifTable>;
using HandlePtr = Fwk::Ptr<const Asic::SwTableBase::EntryHandle>;

class Scenario : public TableFixture {
 protected:
   void SetUp() override {
      TableFixture::SetUp();
      createTable(tableOptions());
   }
   virtual TableOptions tableOptions() const { return {}; }

   static Fwk::Ptr<ProfileHandle> readyProfile(Asic::Index index) {
      return ProfileHandle::make(S::success, index);
   }
   // A profile entry that has no index yet: entries needing it wait.
   static Fwk::Ptr<ProfileHandle> pendingProfile() {
      return ProfileHandle::make(S::unresolved, Asic::kInvalidIndex);
   }
   static void makeReady(ProfileHandle& profile, Asic::Index index) {
      profile.hwIndexIs(index);
      profile.entryStateIs(S::success);
   }

   // Commits and delivers every acknowledgement.
   HandlePtr commitAcked(std::uint64_t key, const Entry& entry) {
      HandlePtr h = t().entryCommit(k(key), entry);
      util().ackAll(t());
      return h;
   }
   // The platform's write-response path, for tables without a Util (nothing records writes).
   bool ack(std::uint64_t key) {
      const L3TunnelIntfKey kk(key);
      return t().writeResponseSm()->writeAcknowledged(&kk);
   }
   // The table's own (mutable) handle of a key.
   IngL3IifTable::EntryHandle& own(std::uint64_t key) {
      const auto* slot = t().entryHandleMap().find(k(key));
      if (slot == nullptr) {
         throw std::out_of_range("no entry handle for key " + std::to_string(key));
      }
      return **slot;
   }
   // Users of a key's handle, without taking a reference.
   std::uint32_t users(std::uint64_t key) { return own(key).refCount(); }

   // Engine trace lines as "<step><text>", in order.
   std::vector<std::string> steps() const {
      static const std::string prefix = std::string(IngL3IifTable::kTypeName) + " : ";
      std::vector<std::string> out;
      for (const auto& line : traces()) {
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

   Asic::IndexUserTracker& tracker() { return *hwTable->indexUserTracker(); }

   // Names the handle so that `alive` can tell whether it still exists; returns the name.
   static std::string track(const HandlePtr& handle) {
      static int serial = 0;
      const std::string name = "trackedHandle" + std::to_string(++serial);
      Fwk::Directory::objectIs(name, const_cast<EH*>(handle.get()));
      return name;
   }
   static bool alive(const std::string& name) { return Fwk::Directory::object(name) != nullptr; }

   // A death-test pattern matching `text` literally.
   static std::string literally(const std::string& text) {
      std::string pattern;
      for (const char c : text) {
         if (std::string_view(".^$|()[]{}*+?\\").find(c) != std::string_view::npos) {
            pattern += '\\';
         }
         pattern += c;
      }
      return pattern;
   }
};

}  // namespace Test
