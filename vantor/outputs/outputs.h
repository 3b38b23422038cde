// What a run of the classic checks tells beside the logs and the report: --json, --report, --junit,
// --exit-alerts, --baseline, --baseline-write and --progress, all fed from one read-out of the
// analyzer. Without them there is none.
#pragma once

#include <memory>
#include <span>

#include "outputs/baseline_writer.h"
#include "outputs/checked_run.h"
#include "outputs/progress.h"
#include "outputs/run_files.h"
#include "outputs/settings.h"
#include "outputs/stream_time.h"

class outputs {
public:
  // Opens the files that were asked for. `wanted`, `request` and `checks` last as long as the
  // outputs. Returns 0, or -1 after a report on standard error.
  int open(output_settings &wanted, const run_request &request, const tsan_config &checks);

  // Begins to listen to the analyzer.
  void listen(tsan_t ctx);

  // True when each packet is to be handed over once the analyzer has had it.
  bool watches_packets() const { return watch != nullptr; }
  void packet(const uint8_t *bytes);

  // Tells the bytes at hand from the packet without sync byte on, before the analyzer has it.
  void sync_lost(std::span<const uint8_t> rest);

  // Completes all files. Returns the status of the run.
  int finish(tsan_t ctx, run_result result);

  progress line;

private:
  // What is learned from the packets themselves.
  struct packet_watch {
    survey tables;
    stream_time time;
  };

  static void on_alert(void *self, const tsan_alert *alert);
  static void on_sample(void *self, const tsan_sample *sample);

  template <typename Work> void collect(Work work);
  double time_of(uint64_t packet);
  const listed_pmt *pmt_of_program(int program) const;
  void list_streams();
  capture_rest rest_of_capture(run_end end) const;
  const allowed_finding *take_baseline(const tsan_alert &alert, double time);
  int write_files(checked_run run);

  const output_settings *wanted = nullptr;
  const run_request *request = nullptr;
  const tsan_config *checks = nullptr;
  tsan_t ctx = nullptr;
  run_files files;
  exit_alerts exit;
  baseline *allowed = nullptr;
  baseline_writer found_now; // for --baseline-write
  report_data data;
  std::unique_ptr<packet_watch> watch;
  sync_grid grid_at_hand; // where sync was lost, in what had been read
  // Memory was refused: from then on alerts and samples are only counted.
  bool is_incomplete = false;
  std::unique_ptr<char[]> reserve; // given back then, so that the analyzer still has what it needs
};
