// What the outputs beside the logs tell about a run as a whole, whatever analyzes the packets.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

// What the run was asked for.
struct run_request {
  const char *file = "", *source = ""; // path of the capture, and its tag
  const char *generator = "";          // program, version and build
  std::span<char *const> options;      // of the command line
  uint64_t first_packet = 1;           // of the file, 1-based
  uint64_t max_packets = 0;            // 0 = all
};

// Why the last packet was the last one.
enum class run_end { complete, limit, signal, stopped, failed, cannot_open, read_failed };

// How it went.
struct run_result {
  run_end end = run_end::failed;
  int status = 0;     // exit status
  int file_errno = 0; // why the file could not be opened or read on, else 0
  size_t bytes = 0;   // read
  size_t records = 0; // packets counted
};

// Byte of the file at which the run's packet number `pkt_idx` (1-based) begins.
uint64_t packet_offset(const run_request &request, uint64_t pkt_idx);

// True when the file, or its rest, could not be had.
bool is_unreadable(run_end end);

// Name of an end, as JSON has it.
const char *run_end_name(run_end end);
