// What a run tells beside the logs and the report: --json, --report, --exit-alerts and --progress,
// all fed from one read-out of the analyzer. Without them there is none.
#pragma once

#include "outputs/exit_alerts.h"
#include "outputs/output_file.h"
#include "outputs/progress.h"
#include "outputs/report_data.h"
#include "outputs/run_info.h"

class outputs {
public:
  // Creates the files that were asked for. Returns 0, or -1 after a report on standard error.
  int open();

  // Begins to listen to the analyzer.
  void listen(tsan_t ctx);

  // Completes all files. Returns the status of the run.
  int finish(run_info run);

  progress line;

private:
  static void on_alert(void *self, const tsan_alert *alert);
  static void on_sample(void *self, const tsan_sample *sample);

  bool collects() const { return json.is_open() || page.is_open(); }

  output_file json, page;
  exit_alerts exit;
  report_data data;
};
