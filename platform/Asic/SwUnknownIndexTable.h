// A software table whose entries' hardware indices are not derived from their keys: an allocator
// hands them out. Keeps, per entry handle, the index suggestions received during a restart.
#pragma once

#include <unordered_map>

#include "Asic/SwTable.h"

namespace Asic {

class SwUnknownIndexTable : public SwTable {
  public:
   static constexpr std::string_view kTypeName = "Asic::SwUnknownIndexTable";

   // The handle's index helper, created if absent.
   Fwk::Ptr<IndexHelper> indexHelperIs(const SwTableBase::EntryHandle* handle);
   // The handle's index helper, or null.
   Fwk::Ptr<IndexHelper> indexHelper(const SwTableBase::EntryHandle* handle) const;
   // Removes and returns the handle's index helper (null if it had none).
   Fwk::Ptr<IndexHelper> indexHelperDel(const SwTableBase::EntryHandle* handle);
   std::size_t indexHelpers() const noexcept { return helpers_.size(); }

  protected:
   explicit SwUnknownIndexTable(std::string name) : SwTable(std::move(name)) {}

  private:
   std::unordered_map<const SwTableBase::EntryHandle*, Fwk::Ptr<IndexHelper>> helpers_;
};

}  // namespace Asic
