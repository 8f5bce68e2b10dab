// Plain-text tables: columns sized to their widest cell, numbers right-aligned.
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

 private:
   void line(std::ostream& out, const std::vector<std::string>& cells,
             const std::vector<std::size_t>& widths) const;
   std::vector<Column> columns_;
   std::vector<std::vector<std::string>> rows_;
};

}  // namespace L3DecapCli
