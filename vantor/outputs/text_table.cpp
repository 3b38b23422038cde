#include "outputs/text_table.h"

#include <algorithm>
#include <utility>

text_table::text_table(std::vector<column> wanted)
    : columns(std::move(wanted)), widths(columns.size()) {
  for (const column &c : columns)
    cell(c.name);
}

void text_table::cell(std::string_view text) {
  size_t &width = widths[ends.size() % columns.size()];
  width = std::max(width, text.size());
  texts += text;
  ends.push_back(texts.size());
}

std::string text_table::lines() const {
  std::string out;
  size_t begin = 0;
  for (size_t i = 0; i < ends.size(); begin = ends[i++]) {
    const size_t at = i % columns.size(), blanks = widths[at] - (ends[i] - begin);
    const bool is_left = columns[at].align == LEFT;
    out.append(is_left ? 0 : blanks, ' ').append(texts, begin, ends[i] - begin);
    out.append(is_left ? blanks + 2 : 2, ' ');
    if (at + 1 == columns.size()) {
      out.erase(out.find_last_not_of(' ') + 1);
      out += '\n';
    }
  }
  return out;
}
