// What the outputs beside the logs tell about a run as a whole.
#pragma once

#include <cstddef>
#include <cstdint>

#include "tsanalyze/readout.h"

// Why the last packet was the last one.
enum class run_end { complete, limit, signal, stopped, failed, cannot_open, read_failed };

struct run_info {
  tsan_t ctx; // still alive
  run_end end;
  int status;     // exit status
  int file_errno; // why the file could not be opened or read on, else 0
  size_t bytes;   // read
  size_t records; // packets counted
};

// Byte of the file at which the run's packet number `pkt_idx` (1-based) begins.
uint64_t packet_offset(uint64_t pkt_idx);

// True when the file, or its rest, could not be had.
bool is_unreadable(run_end end);

// Name of an end, as JSON has it.
const char *run_end_name(run_end end);

// The limit that the settings give a measure, ms; 0 = it is not checked.
size_t measure_limit_ms(tsan_sample_kind kind);

// The analyzer's records, as returned values.
tsan_stats stats_of(tsan_t ctx);
tsan_program_stats stats_of(tsan_t ctx, size_t program);
tsan_stream_stats stats_of(tsan_t ctx, size_t program, size_t stream);
