// All that an audit knows of its stream. Flat records; those per PID begin as zeros.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <queue>
#include <unordered_map>
#include <vector>

#include "audit/audit.h"
#include "audit/clock.h"
#include "audit/zeroed_array.h"
#include "mpegts/constants.h"

// Bounds on what a stream can make an audit remember.
enum : uint32_t {
  MAX_PROGRAMS = 8192,   // more could not have a PMT PID each
  MAX_LISTINGS = 262144, // of PIDs in PMTs
  MAX_PID_LISTINGS = 64, // of one PID
  MAX_DELIVERED = 20000, // findings of one kind, one by one
  MAX_OPEN_FINDINGS = 65536,
  MAX_CLOCKS = 1024, // PCR_PIDs of which more is kept than their intervals
};

enum : uint32_t { NO_PROGRAM = UINT32_MAX, MAX_INDICATORS = 18 };

// --- What must recur (recurrence.h) ---

enum class recurs : uint8_t { table, presence, pts, pcr };

struct watch {
  double last_t = 0;            // of the last one before the last knot, s
  double longest = 0;           // gap, s
  uint64_t first = 0, last = 0; // packets since the last knot
  uint64_t first_offset = 0;
  double first_ahead = 0, last_ahead = 0; // see clock.h
  uint32_t place = 0; // in the list of those that came since the knot, 1-based; 0: did not
  uint32_t id = 0;    // PID, or index of a program
  recurs what = {};
  audit_table table = {};
  bool is_on = false, came = false;
  bool is_opening = false; // what comes next begins the first interval
  bool is_cut = false;     // what comes next begins a new interval: this one is not judged
};

// --- Findings (findings.h) ---

// Lists of a PAT-CHANGE, PMT-CHANGE or PSI-VERSION.
struct change_lists {
  std::vector<uint16_t> added, removed, retyped, descriptors;
  int32_t pcr_pid_old = -1, pcr_pid_new = -1;
};

struct event {
  audit_kind kind = AUDIT_KINDS;
  int32_t pid = -1;
  audit_table table = AUDIT_NO_TABLE;
  int32_t program_number = -1; // only of what is about a PMT
  uint64_t packet = 0, offset = 0;
  double time = 0;
  uint64_t count = 1; // of what the finding counts
  uint64_t sum = 0, counted = 0;
  double value = NAN;
  int16_t table_id = -1;
  int8_t last_cc = -1, cc = -1;
  bool after_sync = false, to_end = false, never = false;
  std::unique_ptr<change_lists> change = nullptr;
};

struct open_finding {
  event first; // with the sums and the greatest value of all its events
  uint64_t key = 0, serial = 0;
  uint64_t last_packet = 0, events = 0;
  double last_time = 0;
  uint8_t indicator = 0;    // MAX_INDICATORS: none
  uint32_t next_parked = 0; // index + 1, of those that wait for the same held loss
};

struct closing { // when a finding can be closed, at the earliest
  double last_time;
  uint32_t id;
  bool operator<(const closing &other) const { return last_time > other.last_time; }
};

struct findings_state {
  std::vector<open_finding> open;
  std::vector<uint32_t> free;
  std::unordered_map<uint64_t, uint32_t> latest; // by key
  std::priority_queue<closing> queue;
  std::vector<uint32_t> closed; // scratch
  uint64_t opened = 0;
  uint64_t count[AUDIT_KINDS] = {}, delivered[AUDIT_KINDS] = {};
  uint64_t fails = 0, undelivered = 0;
};

// --- PIDs ---

enum pid_flag : uint8_t {
  PID_PSI = 1,         // carries sections that are read
  PID_WATCHED = 2,     // its packets must recur
  PID_STAMPED = 4,     // its PES headers are read
  PID_HOLDS = 8,       // holds a loss
  PID_LISTED = 16,     // some table listed it at some time, or it needs none
  PID_AWAITED = 32,    // listed, no packet yet, need not recur
  PID_UNPROTECTED = 64 // listed stream under no CA descriptor
};

// What nearly every packet of a PID touches: one cache line.
struct alignas(64) pid_state {
  uint64_t packets;
  uint64_t seen;        // number of its last packet whose counter was looked at
  uint64_t counted;     // and of the last one whose counter was taken
  uint64_t last_packet; // its last one that counts for presence
  double last_ahead;
  uint64_t touched;   // count of knots + 1 when that was
  uint8_t next_cc;    // last counter + 1, 0 = none yet
  uint8_t duplicates; // since then
  uint8_t tei_skipped;
  uint8_t flags;
};
static_assert(sizeof(pid_state) == 64);

// What a repetition is known by.
struct packet_sample {
  uint32_t header;                 // bytes 1 to 3, and the payload's length
  uint64_t head_bytes, tail_bytes; // the payload's first and last 8 bytes
  bool operator==(const packet_sample &) const = default;
};

// Packets that lie in place, from number `first` on.
struct packet_run {
  const uint8_t *bytes = nullptr;
  size_t stride = 0;
  uint64_t first = UINT64_MAX;
};

// A loss that may turn out to be packets out of order.
struct held_loss {
  uint64_t packet = 0, offset = 0, step_packet = 0,
           step_offset = 0; // of the loss, of the step back
  double time = 0, step_time = 0;
  uint8_t missing = 0, count = 0, late = 0,
          resume = 0; // first counter, how many, how many came late, and then?
  uint8_t age = 0;    // payload packets since
  uint8_t last_cc = 0, cc = 0;
  bool after_sync = false;
};

enum class psi_role : uint8_t { none, pat, cat, pmt, nit, sdt, eit, rst, tdt };

struct section_gather {
  std::vector<uint8_t> bytes; // of the section, none of one that is skipped
  uint8_t header[3];
  uint16_t have = 0, need = 0; // need: 0 until the header is whole
  bool is_open = false, is_skipped = false;
};

// --- Clocks of programs (stamps.h, rate.h) ---

// Time stamps that wait for the next PCR of their clock.
struct waiting_stamps {
  uint64_t packet = 0, offset = 0;
  double time = 0;
  int64_t pts = 0, dts = 0; // 90 kHz
  uint32_t run = 0;
  uint16_t pid = 0;
};

struct rate_interval {
  int64_t d = 0;                     // 27 MHz
  uint64_t packets = 0, counted = 0; // counted: lost, by continuity counters
  uint64_t packet = 0, offset = 0;   // of the second PCR
  double time = 0;
};

enum : size_t { MAX_WAITING = 64, BLOCK_INTERVALS = 64, LEAST_BLOCK = 16 };

// What the PCRs of one PID say beyond their intervals.
struct clock_record {
  int32_t pid = 0;
  uint32_t run = 0; // between its discontinuities
  std::vector<waiting_stamps> waiting;
  std::vector<rate_interval> block; // the intervals of the one that is being filled
  uint64_t lost_before = 0;         // packets by continuity counters, at the last PCR
  uint64_t sync_losses_before = 0;
  uint64_t blocks = 0, constant_blocks = 0;
  double rate_min = 0, rate_max = 0;    // byte/s, of its blocks
  double least_ns = 0, greatest_ns = 0; // off the line, of constant blocks
  uint64_t blocks_beyond = 0;           // the limit of accuracy
  double worst_ns = 0;
  rate_interval worst; // ends at the PCR that is off most
};

// Delays of one kind of time stamp behind the clock, ms.
struct delay_stats {
  uint64_t count;
  double sum, min, max;
};

struct interval_stats {
  uint64_t count, over_40ms;
  int64_t sum, min, max; // 27 MHz
};

struct pid_record {
  uint64_t first_packet, first_offset;
  double first_time, last_time; // estimates, of a PID that no table lists
  uint64_t packets_before;      // the current second
  double bitrate_min, bitrate_max;
  uint64_t scrambled, tei, duplicates, explained, announced, lost;
  held_loss held;
  uint32_t parked; // findings that wait for the held loss: index + 1 of the first
  watch presence, pts, pcr_watch;

  pcr_track pcr;
  dts_track dts;
  uint64_t pcrs, announced_pcrs;
  interval_stats intervals;
  clock_record *clock; // owned; null: nothing waits, nothing was measured

  int64_t last_dts;  // 90 kHz
  double last_delay; // of DTS, ms
  uint32_t run;      // of steps, between discontinuities
  uint32_t last_dts_run, last_delay_run;
  bool has_last_dts, has_last_delay;
  delay_stats pts_delay, dts_delay;

  // From the PMTs in force (listing.h).
  uint32_t listings; // the first one, index + 1
  uint16_t listing_count;
  bool is_stream, is_pcr, is_protected;
  char kind; // of a stream
  uint8_t stream_type;
  psi_role role;
  section_gather *gather; // owned
};

// --- Tables ---

// One PID in one program.
struct listing {
  uint32_t program = 0;                          // index
  uint32_t next_of_pid = 0, next_of_program = 0; // index + 1
  uint16_t pid = 0;
  bool is_stream = false, is_pcr = false, is_pmt = false, is_protected = false;
  char kind = 0;
  uint8_t stream_type = 0;
};

struct program {
  uint16_t number = 0, pmt_pid = 0, pcr_pid = 0;
  uint8_t version = 0;
  bool has_pmt = false;
  bool stays = false;                // while a PAT is put in force
  uint32_t place = 0;                // in the PAT
  uint32_t listings = 0;             // index + 1
  std::vector<uint8_t> section = {}; // the PMT in force
  watch recurrence = {};
};

struct pat_state {
  bool is_taken = false;
  uint8_t version = 0;
  std::vector<uint8_t> content; // transport_stream_id, then the entries
  // Being gathered.
  int32_t next_version = -1;
  uint8_t last_section = 0;
  uint16_t count = 0;
  std::array<bool, 256> has = {};
  std::array<std::vector<uint8_t>, 256> sections = {}; // the last valid ones
};

struct tables_state {
  pat_state pat;
  std::vector<std::unique_ptr<program>> programs; // slots, some free
  std::vector<uint32_t> free_programs;
  std::vector<uint32_t> order;                                    // of the PAT
  std::vector<uint16_t> by_number = std::vector<uint16_t>(65536); // slot + 1
  std::vector<listing> listings;
  std::vector<uint32_t> free_listings;
  uint16_t network_pid = 0x10;
  bool cat_came = false;
  std::vector<uint8_t> cat_section;
  std::array<watch, AUDIT_TABLES> recurrence = {};
};

struct first_scrambled {
  uint64_t packet = 0, offset = 0;
  double time = 0;
  int32_t pid = -1;
};

// Findings of one indicator (indicators.h).
struct indicator_state {
  uint64_t findings = 0, packet = 0;
  double time = NAN, worst = NAN;
  int32_t pid = -1;
};

struct audit_ctx {
  audit_config cfg = {};
  uint64_t packet = 0;       // number of the one at hand, 1-based
  uint64_t skipped = 0;      // packets before the first one
  uint64_t offset = 0;       // of its sync byte
  packet_run run;            // around it
  uint64_t due = UINT64_MAX; // packet of the next knot without PCR
  uint64_t bad_sync_bytes = 0, sync_losses = 0;
  uint64_t sync_fault = 0; // number of the last packet before the last fault of sync
  uint64_t lost = 0;       // packets, by continuity counters
  uint64_t lost_bytes = 0;
  stream_clock clock;
  zeroed_array<pid_state, TS_PIDS> pids;
  zeroed_array<pid_record, TS_PIDS> records;
  // Of the last packet whose counter was taken, unless that is in the run.
  zeroed_array<packet_sample, TS_PIDS> samples;
  std::vector<uint16_t> seen_pids;
  std::vector<watch *> touched;
  tables_state tables;
  findings_state findings;
  first_scrambled scrambled;
  std::vector<clock_record *> clocks; // of the PIDs
  std::vector<uint16_t> handed_out;   // program_numbers of a record
  double second = 0; // time of the knot at which the current second of bitrates begins
  double spread = 0; // packets, by which the rate varies at most
  bool has_pts = false, has_bitrates = false;
  std::array<indicator_state, MAX_INDICATORS> indicators; // in the order of indicators.cpp
  audit_ending ending = AUDIT_COMPLETE;
  bool is_stopped = false, has_ended = false, out_of_memory = false;
};

// Packets so far.
inline uint64_t packets_of(const audit_ctx &a) {
  return a.packet - a.skipped;
}

inline double now(const audit_ctx &a) {
  return clock_time(a.clock, a.packet);
}

inline bool in_dvb(const audit_ctx &a) {
  return a.cfg.profile == AUDIT_DVB;
}
