// Plain-text tables: columns sized to their widest cell, numbers right-aligned. A short table is
// added row by row and printed; a long one is not held: the caller walks its rows twice, once to
// measure them and once to print them.
#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace L3DecapCli {

class TextTable {
 public:
   enum class Align : bool { left, right };
   struct Column {
      std::string heading;
      Align align = Align::right;
   };

   explicit TextTable(std::vector<Column> columns);
   void add(std::vector<std::string> cells);
   void print(std::ostream& out, const std::string& indent = "", bool headings = true) const;

   // A long table: measure() every row, then printHeadings() and printRow() every row again.
   void measure(const std::vector<std::string>& cells);
   void printHeadings(std::ostream& out, const std::string& indent) const;
   void printRow(std::ostream& out, const std::string& indent,
                 const std::vector<std::string>& cells) const;

 private:
   std::vector<Column> columns_;
   std::vector<std::size_t> widths_;
   std::vector<std::vector<std::string>> rows_;
};

}  // namespace L3DecapCli
