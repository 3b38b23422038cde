// --baseline: findings that are allowed, each with a reason and a last day.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <string>
#include <vector>

#include "outputs/day.h"

class json_text;

// A finding, or an alert, as an entry is held against it.
struct found {
  const char *kind;
  int32_t pid;            // -1: none
  int32_t program_number; // -1: none, several, or not known
  double time, last_time; // s of stream time, of the first and the last event; or NAN
};

// An entry of the file.
struct allowed_finding {
  int line = 0; // at which it stands
  std::string kind, reason;
  std::chrono::year_month_day until = {};               // last day, UTC
  int32_t pid = -1, program_number = -1;                // -1: any
  uint64_t most = std::numeric_limits<uint64_t>::max(); // so many findings
  double from = -INFINITY, to = INFINITY;               // s of stream time
  bool is_expired = false;
  uint64_t used = 0; // findings covered so far

  bool has_times() const { return std::isfinite(from) || std::isfinite(to); }
};

class baseline {
public:
  bool is_on() const { return path != nullptr; }

  // An entry asks for what only the packets tell: stream time or program_number.
  bool needs_stream() const;

  // The entry that allows a finding, which then has one less left; null: none does. The first one
  // of the file that fits counts.
  const allowed_finding *cover(const found &finding);

  uint64_t covered() const;

  // Tells the entries that have expired, and those that nothing needed.
  void tell_rest(FILE *out) const;

  // The same as a member of a record.
  void put_rest(json_text &record) const;

  const char *path = nullptr; // null: there is none
  std::vector<allowed_finding> entries;
};

// Marks a record of a finding that an entry allows; null: none does.
void put_allowed(json_text &record, const allowed_finding *entry);
