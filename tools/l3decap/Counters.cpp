#include "Counters.h"

namespace L3DecapCli {

const std::vector<Counter>& counters() {
   using R = Sim::RunReport;
   static const std::vector<Counter> all{
       {"entriesCommitted", "entries committed", "",
        [](const R& r) -> std::uint64_t { return r.entriesCommitted; }},
       {"rowWrites", "row writes", "row writes", [](const R& r) { return r.rowWrites; }},
       {"rowDeletes", "row deletes", "row deletes", [](const R& r) { return r.rowDeletes; }},
       {"rowsAdopted", "rows adopted without a write", "adopted",
        [](const R& r) { return r.rowsAdopted; }},
       {"rowsRewritten", "rows rewritten in place", "rewritten",
        [](const R& r) { return r.rowsRewritten; }},
       {"newEntries", "entries programmed as new", "new", [](const R& r) { return r.newEntries; }},
       {"rowsPurged", "rows purged as stale", "purged", [](const R& r) { return r.rowsPurged; }},
       {"profileRowWrites", "profile row writes", "",
        [](const R& r) { return r.profileRowWrites; }},
       {"profileRowDeletes", "profile row deletes", "",
        [](const R& r) { return r.profileRowDeletes; }},
       {"profileRowsAdopted", "profile rows adopted", "",
        [](const R& r) { return r.profileRowsAdopted; }},
       {"indicesInUse", "indices in use", "in use",
        [](const R& r) -> std::uint64_t { return r.indicesInUse; }},
       {"keysBound", "keys bound from the state store", "",
        [](const R& r) -> std::uint64_t { return r.keysBound; }},
       {"entriesNotInHardware", "entries not in hardware", "",
        [](const R& r) -> std::uint64_t { return r.entriesNotInHardware; }},
   };
   return all;
}

}  // namespace L3DecapCli
