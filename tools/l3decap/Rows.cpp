#include "Rows.h"

#include <algorithm>

namespace L3DecapCli {

using Sim::RowFate;

RowContent rowContent(const Sim::ChipState& chip, std::uint32_t index) {
   RowContent content{chip.decapRow(index), std::nullopt};
   if (content.row.state == Sim::RowState::valued) {
      const Sim::ProfileRow profile = chip.profileRow(content.row.profileIndex);
      if (profile.state == Sim::RowState::valued) {
         content.profileId = profile.profileId;
      }
   }
   return content;
}

std::string rowText(const RowContent& content) {
   const Sim::DecapRow& row = content.row;
   if (row.state != Sim::RowState::valued) {
      return rowStateName(row.state);
   }
   std::string text = content.profileId
                          ? "profile " + std::to_string(*content.profileId)
                          : "profile row " + std::to_string(row.profileIndex) + " (not valued)";
   text += " vrf " + std::to_string(row.vrf);
   text += row.ipv4UcEnable ? " ipv4" : "";
   text += row.ipv6UcEnable ? " ipv6" : "";
   text += row.trustDscp ? " trust-dscp" : "";
   return text;
}

const char* rowStateName(Sim::RowState state) noexcept {
   switch (state) {
      case Sim::RowState::free:
         return "free";
      case Sim::RowState::valued:
         return "valued";
      case Sim::RowState::emptied:
         return "emptied";
   }
   return "free";
}

std::map<std::uint32_t, std::uint64_t> keysByIndex(const KeyIndices& keys) {
   std::map<std::uint32_t, std::uint64_t> byIndex;
   for (const auto& [key, index] : keys) {
      byIndex.emplace(index, key);
   }
   return byIndex;
}

namespace {

std::optional<std::uint64_t> keyAt(const std::map<std::uint32_t, std::uint64_t>& byIndex,
                                   std::uint32_t index) {
   const auto it = byIndex.find(index);
   return it == byIndex.end() ? std::nullopt : std::optional(it->second);
}

std::optional<RowContent> valuedContent(const Sim::ChipState& chip, std::uint32_t index) {
   RowContent content = rowContent(chip, index);
   return content.row.state == Sim::RowState::valued ? std::optional(content) : std::nullopt;
}

}  // namespace

std::vector<PlanRow> planRows(const Sim::RunReport& report) {
   const auto keysAfter = keysByIndex(report.keyIndices);
   const auto keysBefore = keysByIndex(report.keyIndicesBefore);
   std::vector<PlanRow> rows;
   for (std::uint32_t i = 0; i < report.rows.size(); ++i) {
      if (report.rows[i] == RowFate::free) {
         continue;
      }
      PlanRow row{i, report.rows[i], keyAt(keysAfter, i), valuedContent(*report.chipBefore, i),
                  valuedContent(*report.chipAfter, i)};
      if (!row.key) {
         row.key = keyAt(keysBefore, i);
      }
      rows.push_back(row);
   }
   return rows;
}

std::map<RowFate, std::size_t> fateCounts(const std::vector<RowFate>& rows) {
   std::map<RowFate, std::size_t> counts;
   for (const RowFate fate : shownFates()) {
      counts[fate] = 0;
   }
   for (const RowFate fate : rows) {
      ++counts[fate];
   }
   return counts;
}

const std::vector<RowFate>& shownFates() {
   static const std::vector<RowFate> fates{RowFate::adopted, RowFate::rewritten, RowFate::created,
                                           RowFate::purged, RowFate::free};
   return fates;
}

std::vector<Violation> strictViolations(const std::vector<RowFate>& planned,
                                        const std::vector<RowFate>& actual) {
   std::vector<Violation> violations;
   const std::size_t rows = std::min(planned.size(), actual.size());
   for (std::uint32_t i = 0; i < rows; ++i) {
      if (planned[i] == RowFate::adopted && actual[i] != RowFate::adopted) {
         violations.push_back(Violation{i, actual[i]});
      }
   }
   return violations;
}

}  // namespace L3DecapCli
