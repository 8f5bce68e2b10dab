// A picture of the decap table's index space: one small cell per row, coloured by what a run did
// to it, with a legend giving each fate's colour and count. Several panels (one per run) sit side
// by side. Very large tables are drawn with one cell per block of rows (the legend says how many);
// a cell whose rows had several fates is stacked, each fate's band as tall as its share of them,
// so a few changed rows in a block look as few as they are. A row purged and reused by a new key
// counts as purged and as new, as in the totals.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "sim/Agent.h"

namespace L3DecapCli {

struct SvgPanel {
   std::string title;
   std::span<const Sim::RowFate> rows;
};

std::string svgPicture(const std::vector<SvgPanel>& panels);
// Writes the picture; throws std::runtime_error naming the file when it cannot.
void writeSvg(const std::string& path, const std::vector<SvgPanel>& panels);

}  // namespace L3DecapCli
