// A run of the classic checks, as its outputs see it at the end.
#pragma once

#include "outputs/capture_rest.h"
#include "outputs/report_data.h"
#include "outputs/run_info.h"
#include "outputs/survey.h"
#include "tsanalyze/readout.h"

struct checked_run {
  const run_request &request;
  run_result result;
  tsan_t ctx; // still alive
  const tsan_config &settings;
  const report_data &data;
  const baseline &allowed;
  const survey *seen; // null: there was no memory for it
  capture_rest rest;
  double duration;    // s of stream time, NAN without a clock
  bool is_incomplete; // memory was refused for what the outputs collect
};

// An alert of that kind names a PID.
bool has_pid(tsan_alert_kind kind);

// The limit that the settings give a sample, ms; 0 = it is not checked.
size_t limit_ms(const tsan_config &settings, tsan_sample_kind kind);

// The analyzer's records, as returned values.
tsan_stats stats_of(tsan_t ctx);
tsan_program_stats stats_of(tsan_t ctx, size_t program);
tsan_stream_stats stats_of(tsan_t ctx, size_t program, size_t stream);

// The PMT of a program, as the PAT lists it; null when that was not seen.
const listed_pmt *pmt_of(const survey *seen, tsan_t ctx, size_t program);
