// The platform's hardware table record for a software table, with its index-user tracker.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "Asic/Types.h"
#include "Fwk/Entity.h"

namespace Asic {

// Counts the users of each hardware index. The engine reports every change of a row's use with
// one of these codes.
class IndexUserTracker : public Fwk::Entity {
  public:
   static constexpr std::string_view kTypeName = "Asic::IndexUserTracker";

   enum OpType : std::uint8_t {
      acquire = 0,       // a value is written to a row that was not in use: one user more
      refill = 1,        // a value is written to a row that had been emptied
      release = 2,       // a row holding a value is deleted: one user less
      empty = 3,         // a row's value is replaced by an empty row; the row stays in use
      releaseEmpty = 4,  // an emptied row is deleted: one user less
   };
   // "acquire", "refill", "release", "empty", "releaseEmpty".
   static const char* opTypeName(OpType op) noexcept;

   // A tracker with a flat count for each of `rows` indices; an index beyond them (a plug-in may
   // report any) is counted apart, so a far index costs one node, not a vector stretched to it.
   explicit IndexUserTracker(std::uint32_t rows = 0) : users_(rows, 0) {}

   // Adds a row that was in use before a restart (one user).
   void recoveredIndexIs(Index index) { userAdd(index); }
   // Applies one report of a change of use (the codes above). A chip plug-in's
   // updateHwIndexRefCountTracker forwards the engine's reports here.
   void update(Index index, OpType op);

   // Users of the index now, and reports of one code so far.
   std::uint32_t users(Index index) const noexcept;
   std::uint64_t operations(OpType op) const noexcept { return operations_.at(op); }
   // Releases of an index that had no user: a report the engine should never make.
   std::uint64_t underflows() const noexcept { return underflows_; }
   std::size_t indicesInUse() const noexcept { return indicesInUse_; }

   // Deletes a hardware table's tracker (the second and third arguments are the framework's
   // unit and force flag, unused here).
   struct Stub {
      static void deleteTracker(class HwTable* hwTable, int unit, bool force);
   };

  private:
   void userAdd(Index index);
   void userDel(Index index) noexcept;

   std::vector<std::uint32_t> users_;  // by index, for the table's rows: no node per row in use
   std::unordered_map<Index, std::uint32_t> usersBeyond_;  // indices beyond them, while used
   std::size_t indicesInUse_ = 0;      // indices with at least one user
   std::array<std::uint64_t, 5> operations_{};
   std::uint64_t underflows_ = 0;
};

class HwTable : public Fwk::Entity {
  public:
   static constexpr std::string_view kTypeName = "Asic::HwTable";

   // A hardware table of `size` rows, with its index-user tracker.
   HwTable(std::string name, std::uint32_t size);

   const std::string& name() const noexcept { return name_; }
   std::uint32_t size() const noexcept { return size_; }

   // Rows counted as used: the indices a table's allocator already had in use at set-up.
   std::uint32_t usedEntryCount() const noexcept { return usedEntryCount_; }
   void usedEntryCountInc(std::uint32_t n) noexcept { usedEntryCount_ += n; }

   // The index-user tracker; created with the table, null once deleted.
   IndexUserTracker* indexUserTracker() const noexcept { return tracker_.get(); }

  private:
   friend struct IndexUserTracker::Stub;
   std::string name_;
   std::uint32_t size_;
   std::uint32_t usedEntryCount_ = 0;
   Fwk::Ptr<IndexUserTracker> tracker_;
};

}  // namespace Asic
