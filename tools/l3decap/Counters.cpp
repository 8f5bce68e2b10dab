#include "Counters.h"

namespace L3DecapCli {

const std::vector<Counter>& counters() {
   using R = Sim::RunReport;
   static const std::vector<Counter> all{
       {"entriesCommitted", "entries committed", "",
        [](const R& r) -> std::uint64_t { return r.entriesCommitted; }},
       {"rowsWritten", "rows written", "rows written", [](const R& r) { return r.rowsWritten; }},
       {"rowsDeleted", "rows deleted", "rows deleted", [](const R& r) { return r.rowsDeleted; }},
       {"adopted", "adopted without a write", "adopted", [](const R& r) { return r.adopted; }},
       {"rewritten", "rewritten in place", "rewritten", [](const R& r) { return r.rewritten; }},
       {"new", "programmed as new", "new", [](const R& r) { return r.created; }},
       {"purged", "purged as stale", "purged", [](const R& r) { return r.purged; }},
       {"profileRowsWritten", "profile rows written", "",
        [](const R& r) { return r.profileRowsWritten; }},
       {"profileRowsDeleted", "profile rows deleted", "",
        [](const R& r) { return r.profileRowsDeleted; }},
       {"profilesAdopted", "profile rows adopted", "",
        [](const R& r) { return r.profilesAdopted; }},
       {"indicesInUse", "indices in use", "in use",
        [](const R& r) -> std::uint64_t { return r.indicesInUse; }},
       {"keysBound", "keys bound from the state store", "",
        [](const R& r) -> std::uint64_t { return r.keysBound; }},
       {"notInHardware", "entries not in hardware", "",
        [](const R& r) -> std::uint64_t { return r.handlesNotInHardware; }},
   };
   return all;
}

}  // namespace L3DecapCli
