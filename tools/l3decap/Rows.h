// Decap rows as a person reads them: a row's content with the profile id its profile row holds,
// the key that uses it, and what a run did or would do to it.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "sim/Agent.h"
#include "sim/ChipState.h"

namespace L3DecapCli {

using KeyIndices = std::map<std::uint64_t, std::uint32_t>;

struct RowContent {
   Sim::DecapRow row;
   std::optional<std::uint32_t> profileId;  // held by the row's profile row, when that is valued
};

RowContent rowContent(const Sim::ChipState& chip, std::uint32_t index);
// "profile 10 vrf 7 ipv4 trust-dscp"; the row's state for a row without content.
std::string rowText(const RowContent& content);
const char* rowStateName(Sim::RowState state) noexcept;
std::map<std::uint32_t, std::uint64_t> keysByIndex(const KeyIndices& keys);

// One row of a plan: every row that is not free before or after, in index order.
struct PlanRow {
   std::uint32_t index = 0;
   Sim::RowFate fate = Sim::RowFate::free;
   std::optional<std::uint64_t> key;  // the key using the row after, else before
   std::optional<RowContent> before;  // for rows that held content
   std::optional<RowContent> after;   // for rows that hold content afterwards
};

// Needs a report made with RunOptions::recordChip.
std::vector<PlanRow> planRows(const Sim::RunReport& report);

// How many rows have each fate.
std::map<Sim::RowFate, std::size_t> fateCounts(const std::vector<Sim::RowFate>& rows);
// The fates in the order they are shown.
const std::vector<Sim::RowFate>& shownFates();
// A row the plan adopts unchanged that the run then wrote or deleted.
struct Violation {
   std::uint32_t index = 0;
   Sim::RowFate actual = Sim::RowFate::free;
};
std::vector<Violation> strictViolations(const std::vector<Sim::RowFate>& planned,
                                        const std::vector<Sim::RowFate>& actual);

}  // namespace L3DecapCli
