// What the analyzer knows about a source, as plain records. The context (ctx.h) holds them.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <ctime>

#include "misc/aval.h"
#include "misc/ctxt.h"
#include "tsanalyze/limits.h"

// Continuity-counter state of a stream.
struct cc_info {
  int32_t value;   // last counter, -1 = none seen yet
  timespec ms0_tm; // monotonic time of the last unexpected 0; all zero = none yet
};

// The last continuity alert of a source, for losses that hit several streams at once.
struct cc_alert_ctx {
  uint64_t seg_idx; // datagram of the alert
  uint32_t pid;
  int32_t delta; // gap of the counter, 0..15
  int32_t nmlr;  // multi-stream losses in the current datagram; -1 after a correct counter
};

// Alerts of a stream.
struct stream_alert_count {
  uint64_t cc_break, cc_reset;
  uint64_t pcr_delta, av_delta0, av_deltaplus;
  uint64_t pcr_freq, pid_ndat;
};

// A stream; what each of its packets touches comes first.
struct stream_info {
  uint32_t pid;
  char stype;       // 'V' video, 'A' audio, 'S' subtitles and private data
  uint8_t scode;    // stream_type in the PMT
  bool pts_updated; // a new PTS waits to be checked
  bool dts_updated;
  uint64_t count; // packets, each processed and analyzed
  cc_info cc;
  uint64_t last_pts; // 90 kHz ticks, 0 = none yet
  uint64_t pts_pktnum;
  uint64_t last_dts; // 90 kHz ticks, 0 = none yet
  uint64_t dts_pktnum;
};

// Packets of a program's streams, each processed and analyzed, in all and by kind of stream.
struct sa_stats {
  uint64_t count;
  uint64_t video, audio, other;
};

// Alerts of a program.
struct pg_alert_count {
  uint64_t av_delta0, av_deltaplus;
  uint64_t pcr_delta, pcr_freq;
  uint64_t cc_break, cc_reset;
  uint64_t pmt_diff, pid_ndat;
};

// Alerts of the source as a whole.
struct gen_alert_count {
  uint64_t lost_sync, pat_diff, cc_mlr;
};

// A section as it was last looked into, to know it again by its bytes.
struct seen_section {
  size_t size; // bytes, 0 = none
  uint8_t data[TS_PKT_SIZE];
};

// What the tag of a packet says (ptag.h).
struct packet_tag {
  enum : uint8_t { NONE, PKT, PAT, PMT, STREAM } kind;
  bool has_pcr;
  ssize_t ipg, istm; // program, stream
  uint64_t idx;      // packet
  uint64_t pcr;      // base, 90 kHz ticks
  uint64_t behind;   // packets
};

// A program; what each of its packets touches comes first.
struct program_info {
  size_t nstreams;
  sa_stats stat;
  uint32_t pcr_pid;
  bool got_pcr;
  uint64_t last_pcr; // PCR base, 90 kHz ticks, 0 = none
  uint64_t pcr_pktnum;
  packet_tag pcr_tag;    // of the packet that carried last_pcr
  ssize_t pcr_idx;       // stream on pcr_pid, -1 = none; survives PMT changes
  uint32_t curr_pmt_pid; // PID of the PMT that last brought a stream
  ctxt_spec txt_pmt;     // rendering of the PMT in force
  seen_section seen_pmt; // a PMT known to render as txt_pmt, every line of it
  ssize_t ref_idx;       // video stream that audio is held against, -1 = none; survives PMT changes
  uint64_t last_seg_idx; // current datagram
  uint8_t skip_pmt_out;  // reports since the STAT PMT records were last written
  pg_alert_count alert;
  aggr_val av_pdts_delta, av_pcr_delta, av_pcr_freq; // ms
  stream_info stm[MAX_NSTREAMS];                     // in PMT order
};

// Where a packet belongs.
struct dgram_info {
  ssize_t ipg;  // program, -1 = none
  ssize_t istm; // stream of that program, -1 = none
  bool is_pat;
  bool is_pmt;
  program_info *program; // pg[ipg] or null
  stream_info *stream;   // program->stm[istm] or null
};

// A PSI table, being gathered or held: one private copy per section number.
struct psi_block {
  uint8_t *sec[256];
  bool is_complete;
};
