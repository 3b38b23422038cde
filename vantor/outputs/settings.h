// What the command line asks of the outputs, and whether it can be had.
#pragma once

#include <array>

#include "outputs/baseline.h"
#include "outputs/exit_alerts.h"
#include "outputs/output_place.h"

// A file that an option asks for.
struct wanted_file {
  const char *option;
  const char *path = nullptr; // word of the command line, or null
  output_place place = {};
};

struct output_settings {
  wanted_file json{"--json"}, report{"--report"}, junit{"--junit"},
      baseline_write{"--baseline-write"};
  bool progress = false;
  exit_alerts exit;
  baseline allowed;

  std::array<wanted_file *, 4> files() { return {&json, &report, &junit, &baseline_write}; }
  std::array<const wanted_file *, 4> files() const {
    return {&json, &report, &junit, &baseline_write};
  }
  bool any() const;

  // An output is written to standard output, where then nothing else goes.
  bool takes_stdout() const;
};

// Finds the places of the files. They must not be one, nor that of a log; `alerts_on`: standard
// output has the alerts. Returns false after a report on standard error.
bool find_outputs(output_settings &out, bool alerts_on);

// False, after a report on standard error, when an output would be written into the file at `path`,
// which is `what` of the run.
bool spares(const output_settings &out, const char *path, const char *what);
