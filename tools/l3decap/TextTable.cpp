#include "TextTable.h"

#include <algorithm>

namespace L3DecapCli {

TextTable::TextTable(std::vector<Column> columns) : columns_(std::move(columns)) {}

void TextTable::add(std::vector<std::string> cells) {
   cells.resize(columns_.size());
   rows_.push_back(std::move(cells));
}

void TextTable::line(std::ostream& out, const std::vector<std::string>& cells,
                     const std::vector<std::size_t>& widths) const {
   std::string text;
   for (std::size_t c = 0; c < columns_.size(); ++c) {
      const std::string pad(widths[c] - cells[c].size(), ' ');
      text += c == 0 ? "" : "  ";
      text += columns_[c].align == Align::right ? pad + cells[c] : cells[c] + pad;
   }
   text.erase(text.find_last_not_of(' ') + 1);
   out << text << '\n';
}

void TextTable::print(std::ostream& out, const std::string& indent, bool headings) const {
   std::vector<std::size_t> widths;
   std::vector<std::string> headingCells;
   for (const Column& column : columns_) {
      widths.push_back(column.heading.size());
      headingCells.push_back(column.heading);
   }
   for (const auto& row : rows_) {
      for (std::size_t c = 0; c < row.size(); ++c) {
         widths[c] = std::max(widths[c], row[c].size());
      }
   }
   if (headings) {
      out << indent;
      line(out, headingCells, widths);
   }
   for (const auto& row : rows_) {
      out << indent;
      line(out, row, widths);
   }
}

}  // namespace L3DecapCli
