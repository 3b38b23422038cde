// Rows of cells in columns that line up.
#pragma once

#include <string>
#include <string_view>
#include <vector>

class text_table {
public:
  enum alignment { LEFT, RIGHT };
  struct column {
    std::string_view name;
    alignment align = RIGHT;
  };

  explicit text_table(std::vector<column> wanted);

  // Takes the next cell, row by row.
  void cell(std::string_view text);

  // All rows with the names above them, a line each.
  std::string lines() const;

private:
  std::vector<column> columns;
  std::vector<size_t> widths;
  std::string texts; // of all cells
  std::vector<size_t> ends;
};
