// The analyzer's context: everything known about one source, in one block of fixed size.
#pragma once

#include <type_traits>

#include "log/log.h"
#include "tsanalyze/readout.h"
#include "tsanalyze/records.h"
#include "tsanalyze/tsan.h"

// Where a packet can belong, as indices: to nothing that is known, to the PAT, each program's PMT,
// each program's streams.
enum {
  PLACE_NOTHING,
  PLACE_PAT,
  PLACE_PMT,
  PLACE_STREAM = PLACE_PMT + MAX_PMTS,
  MAX_PLACES = PLACE_STREAM + MAX_PMTS * MAX_NSTREAMS,
};

// What the caller has set; tsan_reset() leaves it alone.
struct tsan_settings {
  tsan_config cfg;
  tsan_readout readout;
  const volatile sig_atomic_t *caller_stop; // see tsan_stop_on(); never null
  bool survives;                            // see tsan_survive()
  log_taker taker;                          // see tsan_set_log(); takes nothing at first
};

struct tsan_ctx : tsan_settings {
  uint32_t pmt_pid[MAX_PMTS];        // a 0 ends the list
  uint16_t program_number[MAX_PMTS]; // of each of these, as the last PAT that lists it has it
  uint16_t transport_stream_id;      // of the last PAT
  program_info pg[MAX_PMTS];
  size_t nprogs;
  const dgram_info *dat; // where the current packet belongs
  uint64_t ndat_pcount;  // deadline of the silent-track check, 0 = not armed
  packet_tag tag;        // take it with take_tag(),
  char ptag[MAX_PTAG];   // and its text with ptag()
  time_t last_stats_dumped;
  cc_alert_ctx last_cca;
  uint64_t last_pkt_idx; // 1-based
  psi_block pat;         // the first PAT of the run
  psi_block *new_pat;    // a later PAT being gathered, or null
  seen_section seen_pat; // a later PAT, of one section, known to change nothing
  uint64_t pre_skipped;
  gen_alert_count gac;
  timespec start_tm;
  uint64_t ptotal;
  uint64_t atotal;

  program_info *last_pg;             // program of the last packet that had one, or null
  uint64_t tag_ptotal;               // ptotal when tag was taken
  uint64_t ptag_ptotal;              // ptotal when ptag was made
  time_t idle_notice_tm;             // wall-clock second of the last idle notice
  time_t lostsync_start;             // wall-clock second at which the lost-sync window began
  size_t lostsync_count;             // cases in that window
  const volatile sig_atomic_t *stop; // caller_stop or, once that is set, &ended
  sig_atomic_t ended;                // what tsan_process() returns from now on, 0 = it goes on
  dgram_info places[MAX_PLACES];   // an entry is only ever filled with the same, so dat stays good
  const dgram_info *pids[TS_PIDS]; // what each PID carries now (pids.h)
  uint16_t carriers[MAX_PLACES];   // PIDs that carry something, some of them twice
  size_t ncarriers;
  // In the order of pg and stm; last, since most of it is never touched (tsan_free()).
  stream_alert_count stream_alerts[MAX_PMTS][MAX_NSTREAMS];
};

// It is allocated zeroed and overwritten with zeros at the end.
static_assert(std::is_trivial_v<tsan_ctx>);

// Has the context's lines go where its caller wants them, in the rest of a block.
class lines_of {
public:
  explicit lines_of(const tsan_ctx *tc) : taking(tc->taker.take ? &tc->taker : nullptr) {}

private:
  log_taking taking;
};

// Program of the current packet.
inline program_info *prog(tsan_ctx *tc) {
  return tc->dat->program;
}

// Alerts of a stream of `pg`.
inline stream_alert_count &alerts_of(tsan_ctx *tc, const program_info *pg, const stream_info *stm) {
  return tc->stream_alerts[pg - tc->pg][stm - pg->stm];
}

// Program that counts as the current one: the packet's own or, for a packet of no program, that of
// the last packet that had one. Null before there was any.
inline program_info *current_pg(tsan_ctx *tc) {
  return tc->dat->program ? tc->dat->program : tc->last_pg;
}
