/* Read-out of an analyzer for programs: what the logs and the report tell, as records.
 *
 *   static void on_alert(void *opaque, const tsan_alert *alert) { ... }
 *
 *   tsan_readout readout = {.size = sizeof readout, .on_alert = on_alert};
 *   tsan_set_readout(ctx, &readout);
 *
 * Records begin with their size in bytes, as the side that made them knows them; later versions add
 * fields at the end. Of a record that the caller made (tsan_readout) what a shorter one lacks
 * counts as 0; of one that is to be filled (tsan_stats ...) it is left out, and what the library
 * does not know of a longer one becomes 0. Before a callback reads a field that earlier libraries
 * did not have, it asks TSAN_HAS(). Numbers of kinds never change; a later library can tell of
 * kinds that are not here.
 *
 * A record and the texts in it are valid during the call only. Callbacks run on the thread
 * that calls tsan_process(), tsan_next_seg(), tsan_check_ndat() or tsan_alert_lostsync(), after the
 * alert's log lines and before its counter is raised (of LOST-SYNC: after); they must not throw,
 * nor call an operation that changes the context, but for tsan_stop(). Without a read-out nothing
 * is made and nothing costs. */
#ifndef VANTOR_TSANALYZE_READOUT_H
#define VANTOR_TSANALYZE_READOUT_H

#include "tsan.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Whether a record that the library has made reaches as far as `field`. */
#define TSAN_HAS(record, field)                                                                    \
  ((size_t)((const char *)(&(record)->field + 1) - (const char *)(record)) <= (record)->size)

typedef enum tsan_alert_kind {
  TSAN_CC_BRK = 0,    /* continuity counter broken: dgram, last_cc, current_cc */
  TSAN_CC_RST = 1,    /* continuity counter restarted: the same and elapsed_ms */
  TSAN_CC_MLR = 2,    /* losses that hit several streams at once: dgram, count */
  TSAN_PCR_DELTA = 3, /* time stamp far from PCR: is_pts, stamp, pcr, pcr_pid, delta_ms */
  TSAN_AV_DELTA0 = 4, /* audio less than 1 ms from video, but not on it: is_pts, ref_pid, ref_stamp,
                     stamp, pcr, delta_ms */
  TSAN_AV_DELTA_PLUS = 5, /* audio far from video: the same */
  TSAN_PCR_FREQ = 6,      /* PCRs too far apart: pcr_pid, old_pcr, pcr, delta_ms */
  TSAN_PAT_DIFF = 7,      /* list of programs changed: added, deleted, programs */
  TSAN_PMT_DIFF = 8,      /* PMT changed: old_tracks, new_tracks, pcr_pid */
  TSAN_PID_NDAT = 9,      /* announced stream without a packet: track */
  TSAN_LOST_SYNC = 10,    /* loss of sync that the caller reported: count */
  TSAN_OUT_OF_SYNC = 11,  /* packet without sync byte: the end */
  TSAN_IDLE = 12,         /* nothing to analyze for too long: the end */
  TSAN_ALERT_KINDS        /* of this version; there may be others */
} tsan_alert_kind;

/* One finding. Fields that its kind does not name are 0. Clock values are 90 kHz ticks. */
typedef struct tsan_alert {
  size_t size;
  tsan_alert_kind kind;
  int program;      /* index of the program it belongs to, -1 = the source as a whole */
  uint32_t pid;     /* stream (CC, AV, PCR-DELTA, NDAT), PMT (PMT-DIFF) or PCR (PCR-FREQ); else 0 */
  uint64_t pkt_idx; /* packet at hand, 1-based */
  const char *ptag; /* its tag */
  uint64_t last_pcr; /* last PCR of the packet's program; 0 = none yet */
  uint64_t dgram;
  int32_t last_cc, current_cc;
  int64_t elapsed_ms;
  uint64_t count;
  bool is_pts; /* else DTS */
  uint64_t stamp;
  uint32_t ref_pid;
  uint64_t ref_stamp;
  uint32_t pcr_pid;
  uint64_t old_pcr, pcr;
  uint64_t delta_ms;
  size_t added, deleted, programs;
  size_t old_tracks, new_tracks;
  size_t track;
  uint32_t program_number; /* of `program`, as the PAT lists it; 0 = none */
} tsan_alert;

typedef enum tsan_sample_kind {
  TSAN_PCR_INTERVAL = 0, /* from one PCR to the next */
  TSAN_STAMP_TO_PCR = 1, /* audio PTS or DTS to the last PCR */
  TSAN_AUDIO_TO_REF = 2, /* audio PTS or DTS to that of the reference video */
  TSAN_SAMPLE_KINDS      /* of this version; there may be others */
} tsan_sample_kind;

/* One measured distance, as it goes into the running averages. */
typedef struct tsan_sample {
  size_t size;
  tsan_sample_kind kind;
  int program;
  uint32_t pid; /* stream that was measured; of a PCR interval: the PCR's PID */
  bool is_pts;
  bool is_checked; /* the check is on; false: measured for the read-out only (measure_all) */
  uint64_t pkt_idx;
  uint64_t last_pcr; /* of the program, 90 kHz ticks */
  uint64_t ms;
  uint64_t pcr;       /* what was measured, 90 kHz ticks: the PCR (of an interval: the new one), */
  uint64_t stamp;     /* the time stamp, */
  uint64_t ref_stamp; /* that of the reference video; 0 where there is none. Signed distances are
                         differences of these modulo 2^33 */
  uint32_t program_number; /* of `program`, as the PAT lists it */
} tsan_sample;

typedef struct tsan_readout {
  size_t size;                                             /* of this record, set by the caller */
  void *opaque;                                            /* handed to the callbacks */
  void (*on_alert)(void *opaque, const tsan_alert *alert); /* or null */
  void (*on_sample)(void *opaque, const tsan_sample *sample); /* or null */
  bool measure_all; /* also measure what has no threshold, while the checks run (is_enabled): each
                       PCR interval, and each new audio PTS or DTS once, against the PCR and, with
                       no reference chosen, the program's first video stream. Goes into the
                       averages of tsan_program_stats too. Nothing that is printed changes */
} tsan_readout;

/* Sets the read-out of a context, or takes it away (null). The record is copied. Returns 0, or 22
 * (EINVAL) for a size that no record has (below its own, above 4096). */
KORVA_API int tsan_set_readout(tsan_t ctx, const tsan_readout *readout);

/* Name of a kind of finding as the logs write it: "CC-BRK" ...; "OUT-OF-SYNC" and "IDLE" for the
 * two ends; null for a number that is none. */
KORVA_API const char *tsan_alert_name(tsan_alert_kind kind);

/* Running average of a measured distance, ms: since the last tsan_reset_local_stats() and since the
 * start. */
typedef struct tsan_average {
  uint64_t count, total, min, max;
  uint64_t g_count, g_total, g_min, g_max;
} tsan_average;

/* The report, as plain records. */
typedef struct tsan_stats {
  size_t size;
  uint64_t processed, analyzed; /* packets */
  uint64_t start_skipped;       /* packets before analysis began */
  size_t programs;
  uint64_t lost_sync, pat_diff, cc_mlr; /* alerts */
  uint32_t transport_stream_id;         /* of the last PAT; 0 before there is one */
  int result;                           /* tsan_result that stays, as of tsan_process(); else 0 */
} tsan_stats;

typedef struct tsan_program_stats {
  size_t size;
  size_t streams;
  uint32_t pmt_pid, pcr_pid;
  uint64_t processed, analyzed; /* packets */
  uint64_t video, audio, other; /* packets processed, by kind of stream */
  uint64_t video_analyzed, audio_analyzed, other_analyzed;
  uint64_t av_delta_plus, av_delta0, pcr_delta, pcr_freq, cc_brk, cc_rst, pmt_diff, pid_ndat;
  tsan_average audio_to_ref, stamp_to_pcr, pcr_interval;
  uint32_t listed_pid; /* of its PMT in the PAT; pmt_pid is that of the PMT that brought streams */
  uint32_t program_number; /* in the PAT */
} tsan_program_stats;

typedef struct tsan_stream_stats {
  size_t size;
  uint32_t pid;
  char kind;        /* 'V', 'A' or 'S' */
  uint8_t type;     /* stream_type */
  const char *name; /* of that type, as the report shows it; lasts as long as the library */
  uint64_t processed, analyzed;
  /* Alerts, since the PMT began to list the stream, anew when it was missing there. The counts of a
   * program also have those of streams that are no longer listed; its pid_ndat those of other
   * programs' streams that were found silent at a packet of this one. */
  uint64_t cc_brk, cc_rst, pcr_delta, av_delta_plus, av_delta0, pcr_freq, pid_ndat;
} tsan_stream_stats;

/* Fill a record, of which `size` has to be set, from the context as it stands. Return 0, or 22
 * (EINVAL) for a size that no record has (below its own, above 4096) or an index that does not
 * exist. */
KORVA_API int tsan_get_stats(tsan_t ctx, tsan_stats *stats);
KORVA_API int tsan_get_program_stats(tsan_t ctx, size_t program, tsan_program_stats *stats);
KORVA_API int tsan_get_stream_stats(tsan_t ctx, size_t program, size_t stream,
                                    tsan_stream_stats *stats);

#ifdef __cplusplus
}
#endif

#endif
