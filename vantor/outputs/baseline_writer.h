// --baseline-write: a baseline that allows what a run has found.
#pragma once

#include <compare>
#include <cstdint>
#include <map>
#include <string_view>

#include "outputs/baseline.h"
#include "outputs/output_file.h"

class baseline_writer {
public:
  // Takes a finding, and the entry that allows it already, or null. Throws when memory is refused.
  void add(const found &finding, const allowed_finding *entry);

  // Writes an entry for each kind on each PID: the reason and last day of the old one, or, for new
  // findings, the name of the capture and a day in three months.
  void put(output_file &out, const char *capture) const;

private:
  struct key {
    std::string_view kind;
    uint32_t
        pid;  // none is the last one, so that its entry, which fits all, comes behind the others
    int line; // of the entry, 0: none
    auto operator<=>(const key &) const = default;
  };
  struct sum {
    uint64_t count = 0;
    const allowed_finding *entry = nullptr;
  };

  void put_entry(class text_out &text, const key &what, const sum &of, const char *capture) const;

  std::map<key, sum> sums;
};
