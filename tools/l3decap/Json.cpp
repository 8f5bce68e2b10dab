#include "Json.h"

#include "Counters.h"

namespace L3DecapCli {

namespace {

using json = nlohmann::ordered_json;

json contentJson(const RowContent& content) {
   const Sim::DecapRow& row = content.row;
   json j{{"state", rowStateName(row.state)}};
   if (row.state == Sim::RowState::valued) {
      j["profileIndex"] = row.profileIndex;
      j["profile"] = content.profileId ? json(*content.profileId) : json(nullptr);
      j["vrf"] = row.vrf;
      j["ipv4"] = row.ipv4UcEnable;
      j["ipv6"] = row.ipv6UcEnable;
      j["trustDscp"] = row.trustDscp;
   }
   return j;
}

json optionalKey(const std::optional<std::uint64_t>& key) {
   return key ? json(*key) : json(nullptr);
}

json decapRowsJson(const Sim::ChipState& chip, const KeyIndices& keys) {
   const auto keyOf = keysByIndex(keys);
   json rows = json::array();
   for (std::uint32_t i = 0; i < chip.decapRows(); ++i) {
      const RowContent content = rowContent(chip, i);
      if (content.row.state != Sim::RowState::free) {
         const auto key = keyOf.find(i);
         json row{{"index", i}, {"key", key == keyOf.end() ? json(nullptr) : json(key->second)}};
         row.update(contentJson(content));
         rows.push_back(std::move(row));
      }
   }
   return rows;
}

json profileRowsJson(const Sim::ChipState& chip) {
   json rows = json::array();
   for (std::uint32_t i = 0; i < chip.profileRows(); ++i) {
      const Sim::ProfileRow row = chip.profileRow(i);
      if (row.state != Sim::RowState::free) {
         rows.push_back({{"index", i},
                         {"state", rowStateName(row.state)},
                         {"profile", row.state == Sim::RowState::valued ? json(row.profileId)
                                                                        : json(nullptr)}});
      }
   }
   return rows;
}

}  // namespace

json countersJson(const Sim::RunReport& report) {
   json j{{"restart", report.restart}, {"decapRows", report.rows.size()}};
   for (const Counter& c : counters()) {
      j[std::string(c.json)] = c.value(report);
   }
   j["seconds"] = report.seconds;
   j["storeSeconds"] = report.storeSeconds;
   return j;
}

json runJson(const std::string& chipFile, const Sim::RunReport& report,
             const std::vector<Violation>* violations) {
   json j{{"command", "run"}, {"chip", chipFile}};
   j.update(countersJson(report));
   json changed = json::array();
   for (std::uint32_t i = 0; i < report.rows.size(); ++i) {
      const Sim::RowFate fate = report.rows[i];
      if (fate != Sim::RowFate::free && fate != Sim::RowFate::adopted) {
         changed.push_back({{"index", i}, {"fate", Sim::rowFateName(fate)}});
      }
   }
   j["changedRows"] = std::move(changed);
   if (violations != nullptr) {
      json list = json::array();
      for (const Violation& v : *violations) {
         list.push_back(
             {{"index", v.index}, {"planned", "adopted"}, {"actual", Sim::rowFateName(v.actual)}});
      }
      j["strictRestart"] = {{"passed", violations->empty()}, {"violations", std::move(list)}};
   }
   return j;
}

json planJson(const std::string& chipFile, const Sim::RunReport& report,
              const std::vector<PlanRow>& rows) {
   json j{{"command", "plan"}, {"chip", chipFile}};
   j.update(countersJson(report));
   json list = json::array();
   for (const PlanRow& row : rows) {
      json r{{"index", row.index},
             {"fate", Sim::rowFateName(row.fate)},
             {"key", optionalKey(row.key)}};
      r["before"] = row.before ? contentJson(*row.before) : json(nullptr);
      r["after"] = row.after ? contentJson(*row.after) : json(nullptr);
      list.push_back(std::move(r));
   }
   j["rows"] = std::move(list);
   return j;
}

json dumpJson(const std::string& chipFile, const Sim::ChipState& chip, const KeyIndices& keys) {
   return json{{"command", "dump"},
               {"chip", chipFile},
               {"decapRows", chip.decapRows()},
               {"profileRows", chip.profileRows()},
               {"chipId", chip.id()},
               {"decap", decapRowsJson(chip, keys)},
               {"profiles", profileRowsJson(chip)}};
}

json demoJson(const DemoResult& demo) {
   json phases = json::array();
   for (const DemoPhase& phase : demo.phases) {
      json p{{"phase", phase.name}};
      p.update(countersJson(phase.report));
      phases.push_back(std::move(p));
   }
   return json{{"command", "demo"},
               {"tunnels", demo.tunnels},
               {"decapRows", demo.rows},
               {"phases", std::move(phases)}};
}

}  // namespace L3DecapCli
