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

std::optional<std::uint64_t> KeysByRow::at(std::uint32_t row) {
   while (next_ < bindings_.size() && bindings_[next_].row < row) {
      ++next_;
   }
   if (next_ < bindings_.size() && bindings_[next_].row == row) {
      return bindings_[next_].key;
   }
   return std::nullopt;
}

namespace {

constexpr std::uint32_t kProgressStep = 1U << 16;

void tell(const RowProgress& progress, std::uint32_t row, std::uint32_t rows) {
   if (progress && (row % kProgressStep == 0 || row + 1 == rows)) {
      progress(row + 1, rows);
   }
}

}  // namespace

void forEachUsedDecapRow(const Sim::ChipState& chip, const std::vector<Sim::Binding>& keys,
                         const RowProgress& progress,
                         const std::function<void(std::uint32_t, const RowContent&,
                                                  std::optional<std::uint64_t>)>& each) {
   KeysByRow keyOf(keys);
   for (std::uint32_t i = 0; i < chip.decapRows(); ++i) {
      tell(progress, i, chip.decapRows());
      const RowContent content = rowContent(chip, i);
      if (content.row.state != Sim::RowState::free) {
         each(i, content, keyOf.at(i));
      }
   }
}

std::span<const RowFate> shownAs(RowFate fate) {
   static constexpr RowFate kAll[] = {RowFate::free, RowFate::adopted, RowFate::rewritten,
                                      RowFate::created, RowFate::purged};
   static constexpr RowFate kReplaced[] = {RowFate::purged, RowFate::created};
   if (fate == RowFate::replaced) {
      return kReplaced;
   }
   return std::span<const RowFate>(kAll).subspan(static_cast<std::size_t>(fate), 1);
}

namespace {

std::optional<RowContent> valuedContent(const Sim::ChipState& chip, std::uint32_t index) {
   RowContent content = rowContent(chip, index);
   return content.row.state == Sim::RowState::valued ? std::optional(content) : std::nullopt;
}

}  // namespace

void forEachPlanRow(const Sim::RunReport& report, const RowProgress& progress,
                    const std::function<void(const PlanRow&)>& each) {
   KeysByRow keysAfter(report.keysAfter);
   KeysByRow keysBefore(report.keysBefore);
   const auto rows = static_cast<std::uint32_t>(report.rows.size());
   for (std::uint32_t i = 0; i < rows; ++i) {
      tell(progress, i, rows);
      const RowFate fate = report.rows[i];
      if (fate == RowFate::free) {
         continue;
      }
      const auto after = keysAfter.at(i);
      const auto before = keysBefore.at(i);
      const auto contentBefore = valuedContent(*report.chipBefore, i);
      const auto contentAfter = valuedContent(*report.chipAfter, i);
      if (fate == RowFate::replaced) {
         each(PlanRow{i, RowFate::purged, before, contentBefore, std::nullopt});
         each(PlanRow{i, RowFate::created, after, std::nullopt, contentAfter});
      } else {
         each(PlanRow{i, fate, after ? after : before, contentBefore, contentAfter});
      }
   }
}

FateCounts fateCounts(std::span<const RowFate> rows) {
   FateCounts counts{};
   for (const RowFate fate : rows) {
      for (const RowFate shown : shownAs(fate)) {
         ++counts[static_cast<std::size_t>(shown)];
      }
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
