#include "Svg.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "Rows.h"

namespace L3DecapCli {

namespace {

using Sim::RowFate;

constexpr std::size_t kMaxCells = 16384;
constexpr int kCell = 8;
constexpr int kPitch = 9;
constexpr int kMargin = 16;
constexpr int kTitleHeight = 24;
constexpr int kLegendLine = 16;

const char* colour(RowFate fate) {
   switch (fate) {
      case RowFate::adopted:
         return "#6aa84f";
      case RowFate::rewritten:
         return "#f1a33c";
      case RowFate::created:
         return "#3d85c6";
      case RowFate::purged:
      case RowFate::replaced:  // never drawn: shown as purged and new
         return "#cc3333";
      case RowFate::free:
         return "#e6e6e6";
   }
   return "#e6e6e6";
}

std::string escaped(const std::string& text) {
   std::string out;
   for (const char c : text) {
      switch (c) {
         case '&':
            out += "&amp;";
            break;
         case '<':
            out += "&lt;";
            break;
         case '>':
            out += "&gt;";
            break;
         case '"':
            out += "&quot;";
            break;
         default:
            out += c;
      }
   }
   return out;
}

struct Grid {
   std::size_t rowsPerCell = 1;
   std::size_t cells = 0;
   std::size_t columns = 1;
   int width() const { return static_cast<int>(columns) * kPitch; }
   int height() const {
      return static_cast<int>((cells + columns - 1) / std::max<std::size_t>(columns, 1)) * kPitch;
   }
};

Grid gridFor(std::size_t rows) {
   Grid g;
   g.rowsPerCell = std::max<std::size_t>(1, (rows + kMaxCells - 1) / kMaxCells);
   g.cells = (rows + g.rowsPerCell - 1) / g.rowsPerCell;
   g.columns = std::clamp<std::size_t>(g.cells, 1, g.cells > 4096 ? 128 : 64);
   return g;
}

std::string cellTitle(const Grid& g, std::size_t cell, std::size_t rows, const FateCounts& counts) {
   const std::size_t first = cell * g.rowsPerCell;
   const std::size_t last = std::min(first + g.rowsPerCell, rows) - 1;
   std::string title = first == last ? "row " + std::to_string(first)
                                     : "rows " + std::to_string(first) + "-" + std::to_string(last);
   const char* separator = ": ";
   for (const RowFate fate : shownFates()) {
      if (const std::size_t n = counts[static_cast<std::size_t>(fate)]; n != 0) {
         title += separator;
         title += first == last ? Sim::rowFateName(fate)
                                : std::to_string(n) + " " + Sim::rowFateName(fate);
         separator = ", ";
      }
   }
   return title;
}

// One cell: a band per shown fate of its rows, in the legend's order, as tall as its share.
void drawCell(std::ostream& out, const FateCounts& counts, int x, int y) {
   std::size_t total = 0;
   for (const std::size_t n : counts) {
      total += n;
   }
   double top = y;
   for (const RowFate fate : shownFates()) {
      const std::size_t n = counts[static_cast<std::size_t>(fate)];
      if (n == 0) {
         continue;
      }
      const double height = kCell * static_cast<double>(n) / static_cast<double>(total);
      out << "<rect class=\"cell " << Sim::rowFateName(fate) << "\" x=\"" << x << "\" y=\"" << top
          << "\" width=\"" << kCell << "\" height=\"" << height << "\"/>\n";
      top += height;
   }
}

void drawCells(std::ostream& out, const SvgPanel& panel, const Grid& g, int x0, int y0) {
   for (std::size_t cell = 0; cell < g.cells; ++cell) {
      const std::size_t first = cell * g.rowsPerCell;
      const FateCounts counts =
          fateCounts(panel.rows.subspan(first, std::min(g.rowsPerCell, panel.rows.size() - first)));
      const int x = x0 + static_cast<int>(cell % g.columns) * kPitch;
      const int y = y0 + static_cast<int>(cell / g.columns) * kPitch;
      const bool allFree = counts[static_cast<std::size_t>(RowFate::free)] ==
                           std::min(g.rowsPerCell, panel.rows.size() - first);
      if (!allFree) {
         out << "<g><title>" << cellTitle(g, cell, panel.rows.size(), counts) << "</title>";
      }
      drawCell(out, counts, x, y);
      if (!allFree) {
         out << "</g>\n";
      }
   }
}

int drawLegend(std::ostream& out, const SvgPanel& panel, int x0, int y0) {
   const auto counts = fateCounts(panel.rows);
   int y = y0;
   for (const RowFate fate : shownFates()) {
      const std::size_t count = counts[static_cast<std::size_t>(fate)];
      out << "<rect class=\"swatch " << Sim::rowFateName(fate) << "\" x=\"" << x0 << "\" y=\"" << y
          << "\" width=\"10\" height=\"10\"/>\n";
      out << "<text x=\"" << x0 + 16 << "\" y=\"" << y + 9 << "\">" << Sim::rowFateName(fate)
          << ": " << count << "</text>\n";
      y += kLegendLine;
   }
   return y - y0;
}

// Draws one panel at (x0, y0); returns its height.
int drawPanel(std::ostream& out, const SvgPanel& panel, const Grid& g, int x0, int y0) {
   out << "<text class=\"title\" x=\"" << x0 << "\" y=\"" << y0 + 14 << "\">"
       << escaped(panel.title) << "</text>\n";
   std::string scale = std::to_string(panel.rows.size()) + " rows";
   if (g.rowsPerCell > 1) {
      scale += ", one cell per " + std::to_string(g.rowsPerCell) +
               " rows, banded by their share of each fate";
   }
   out << "<text class=\"note\" x=\"" << x0 << "\" y=\"" << y0 + kTitleHeight + 2 << "\">" << scale
       << "</text>\n";
   const int gridTop = y0 + kTitleHeight + 10;
   drawCells(out, panel, g, x0, gridTop);
   const int legendTop = gridTop + g.height() + 10;
   return legendTop - y0 + drawLegend(out, panel, x0, legendTop);
}

void style(std::ostream& out) {
   out << "<style>\ntext { font: 12px sans-serif; fill: #222; }\n"
          ".title { font-weight: bold; font-size: 14px; }\n.note { fill: #666; }\n";
   for (const RowFate fate : shownFates()) {
      out << "." << Sim::rowFateName(fate) << " { fill: " << colour(fate) << "; }\n";
   }
   out << "</style>\n";
}

}  // namespace

std::string svgPicture(const std::vector<SvgPanel>& panels) {
   std::ostringstream body;
   int x = kMargin;
   int height = 0;
   for (const SvgPanel& panel : panels) {
      const Grid g = gridFor(panel.rows.size());
      height = std::max(height, drawPanel(body, panel, g, x, kMargin));
      x += std::max(g.width(), 180) + 2 * kMargin;
   }
   std::ostringstream out;
   out << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << x - kMargin << "\" height=\""
       << height + 2 * kMargin << "\">\n";
   style(out);
   out << "<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n" << body.str() << "</svg>\n";
   return out.str();
}

void writeSvg(const std::string& path, const std::vector<SvgPanel>& panels) {
   std::ofstream out(path, std::ios::trunc);
   if (out) {
      out << svgPicture(panels);
   }
   if (!out.flush()) {
      throw std::runtime_error(path + ": cannot write the picture: " + std::strerror(errno));
   }
}

}  // namespace L3DecapCli
