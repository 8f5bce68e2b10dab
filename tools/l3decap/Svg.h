// A picture of the decap table's index space: one small cell per row, coloured by what a run did
// to it, with a legend giving each fate's colour and count. Several panels (one per run) sit side
// by side. Very large tables are drawn with one cell per block of rows, the block taking the
// most telling fate of its rows (a change wins over adopted, adopted over free).
#pragma once

#include <string>
#include <vector>

#include "sim/Agent.h"

namespace L3DecapCli {

struct SvgPanel {
   std::string title;
   std::vector<Sim::RowFate> rows;
};

std::string svgPicture(const std::vector<SvgPanel>& panels);
// Writes the picture; throws std::runtime_error naming the file when it cannot.
void writeSvg(const std::string& path, const std::vector<SvgPanel>& panels);

}  // namespace L3DecapCli
