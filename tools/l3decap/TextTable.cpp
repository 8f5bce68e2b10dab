#include "TextTable.h"

#include <algorithm>

namespace L3DecapCli {

TextTable::TextTable(std::vector<Column> columns) : columns_(std::move(columns)) {
   for (const Column& column : columns_) {
      widths_.push_back(column.heading.size());
   }
}

void TextTable::add(std::vector<std::string> cells) {
   cells.resize(columns_.size());
   measure(cells);
   rows_.push_back(std::move(cells));
}

void TextTable::measure(const std::vector<std::string>& cells) {
   for (std::size_t c = 0; c < cells.size() && c < widths_.size(); ++c) {
      widths_[c] = std::max(widths_[c], cells[c].size());
   }
}

void TextTable::printRow(std::ostream& out, const std::string& indent,
                         const std::vector<std::string>& cells) const {
   std::string text = indent;
   for (std::size_t c = 0; c < columns_.size(); ++c) {
      const std::string& cell = c < cells.size() ? cells[c] : std::string();
      const std::string pad(widths_[c] - std::min(widths_[c], cell.size()), ' ');
      text += c == 0 ? "" : "  ";
      text += columns_[c].align == Align::right ? pad + cell : cell + pad;
   }
   text.erase(text.find_last_not_of(' ') + 1);
   out << text << '\n';
}

void TextTable::printHeadings(std::ostream& out, const std::string& indent) const {
   std::vector<std::string> headings;
   for (const Column& column : columns_) {
      headings.push_back(column.heading);
   }
   printRow(out, indent, headings);
}

void TextTable::print(std::ostream& out, const std::string& indent, bool headings) const {
   if (headings) {
      printHeadings(out, indent);
   }
   for (const auto& row : rows_) {
      printRow(out, indent, row);
   }
}

}  // namespace L3DecapCli
