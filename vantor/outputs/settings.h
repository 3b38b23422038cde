// What the command line asks of the outputs, and whether it can be had.
#pragma once

#include "outputs/exit_alerts.h"
#include "outputs/output_place.h"

struct output_settings {
  const char *json_path = nullptr, *report_path = nullptr; // words of the command line, or null
  bool progress = false;
  exit_alerts exit;
  output_place json, report; // of the two paths

  bool any() const { return json_path || report_path || progress || exit.is_on(); }

  // An output is written to standard output, where then nothing else goes.
  bool takes_stdout() const;
};

// Finds the places of the files. They must not be one, nor that of a log; `alerts_on`: standard
// output has the alerts. Returns false after a report on standard error.
bool find_outputs(output_settings &out, bool alerts_on);

// False, after a report on standard error, when an output would be written into the file at `path`,
// which is `what` of the run.
bool spares(const output_settings &out, const char *path, const char *what);
