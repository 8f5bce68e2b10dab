// Decap rows as a person reads them: a row's content with the profile id its profile row holds,
// the key that uses it, and what a run did or would do to it. Large chips are walked row by row,
// never held as text.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "sim/Agent.h"
#include "sim/ChipState.h"

namespace L3DecapCli {

struct RowContent {
   Sim::DecapRow row;
   std::optional<std::uint32_t> profileId;  // held by the row's profile row, when that is valued
};

RowContent rowContent(const Sim::ChipState& chip, std::uint32_t index);
// "profile 10 vrf 7 ipv4 trust-dscp"; the row's state for a row without content.
std::string rowText(const RowContent& content);
const char* rowStateName(Sim::RowState state) noexcept;

// Told (rows done, rows in all) now and then while rows are walked.
using RowProgress = std::function<void(std::size_t, std::size_t)>;

// Calls `each` for every decap row that is not free, in row order, with its key from `keys`
// (bindings in row order).
void forEachUsedDecapRow(const Sim::ChipState& chip, const std::vector<Sim::Binding>& keys,
                         const RowProgress& progress,
                         const std::function<void(std::uint32_t, const RowContent&,
                                                  std::optional<std::uint64_t>)>& each);

// The key of each row from bindings in row order, asked for in increasing row order.
class KeysByRow {
 public:
   explicit KeysByRow(const std::vector<Sim::Binding>& bindings) : bindings_(bindings) {}
   std::optional<std::uint64_t> at(std::uint32_t row);

 private:
   const std::vector<Sim::Binding>& bindings_;
   std::size_t next_ = 0;
};

// The fates a row's fate is shown and counted as: a replaced row is purged and new.
std::span<const Sim::RowFate> shownAs(Sim::RowFate fate);

// One line of a plan: a row's fate with the key and content it concerns. A replaced row gives two
// lines, purged (the old key and content) and new (the new key and content).
struct PlanRow {
   std::uint32_t index = 0;
   Sim::RowFate fate = Sim::RowFate::free;
   std::optional<std::uint64_t> key;  // the key using the row after, else before
   std::optional<RowContent> before;  // for rows that held content
   std::optional<RowContent> after;   // for rows that hold content afterwards
};

// Calls `each` for the plan's lines in row order (every row not free before or after). Needs a
// report made with RunOptions::recordChip.
void forEachPlanRow(const Sim::RunReport& report, const RowProgress& progress,
                    const std::function<void(const PlanRow&)>& each);

// How many rows have each shown fate, indexed by the fate (a replaced row counts as purged and as
// new, never as replaced).
using FateCounts = std::array<std::size_t, static_cast<std::size_t>(Sim::RowFate::replaced) + 1>;
FateCounts fateCounts(std::span<const Sim::RowFate> rows);
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
