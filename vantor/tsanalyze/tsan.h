/* Transport-stream analyzer: hand it one packet at a time and learn from its two logs what is wrong
 * with the stream, and from its report what the stream holds.
 *
 *   tsan_config cfg;
 *   tsan_default_config(&cfg);
 *   korva_log_default(korva_log(), stderr);   // log.h
 *   int err = 0;
 *   tsan_t ctx = tsan_init("channel-7", &cfg, &err);
 *   if (!ctx)
 *     return err;
 *   while (next_packet(pkt) && tsan_process(ctx, pkt) == 0)
 *     ;
 *   tsan_check_ndat(ctx);
 *   tsan_dump_stats(stderr, ctx);
 *   tsan_free(ctx);
 *
 * Findings go to the application log (human lines) and to the access log (terse lines), each once
 * korva_log_default() has given it a stream, and as records to a read-out (readout.h).
 *
 * Threads: a context is used by one thread at a time; several contexts may run in several threads
 * at once. They share nothing but the logs, in which each line is whole. The report, the settings
 * and the tables that traces show are blocks: nothing comes between their lines on their stream.
 *
 * Pointers must not be null where nothing is said of it. No operation throws, or changes a signal.
 *
 * Four conditions in the tables of a stream end the whole process through an assertion, in every
 * build: a first PAT that lists PID 0 or no program at all (also the next PAT after one that
 * emptied the list), a later PAT, not the same as the first, with which there are more than 31 PMT
 * PIDs (also when there were 32 before), and a PMT whose PCR_PID is 0. The C library's message of a
 * failed assertion goes to standard error, then abort(3) is called; what was found before is on its
 * stream. A system clock that cannot be read ends the process in the same way. tsan_survive() makes
 * all of this a result of tsan_process() instead. */
#ifndef VANTOR_TSANALYZE_TSAN_H
#define VANTOR_TSANALYZE_TSAN_H

#include <signal.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

/* Marks what the shared library exports. */
#ifndef KORVA_API
#define KORVA_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

struct config_setting_t; /* libconfig's */

/* Trace switches: each adds lines at INFO_level to the application log. */
typedef struct tracking_opt {
  bool sdt_ignore;  /* SDT packets being disregarded */
  bool misc_ignore; /* other packets being disregarded */
  bool pdts_update; /* new PTS/DTS of a stream (needs the DEBUG_level threshold) */
  bool pat_pmt_pkt; /* PAT and PMT packets as they are found */
  bool pcr_update;  /* new PCR of a program */
  bool cc_track;    /* continuity counters as they are followed */
  bool pmt_diff;    /* PMT texts, with each comparison and change */
  bool pat_diff;    /* PAT texts, with each change */
} tracking_opt;

/* Settings of one analyzer. "Default" is that of tsan_default_config(); a settings file has
 * defaults of its own (tsan_load_config). Sizes may have any value. The layout of the record is
 * fixed: what later versions add has operations of its own, as tsan_survive(). */
typedef struct tsan_config {
  bool is_enabled;          /* run the checks; else only classify and count. Default true */
  char source[64];          /* source tag in every line, at most 63 characters */
  size_t max_skip_pkts;     /* packets; give up when none was analyzed by then. Default 5000 */
  size_t max_pdts_delta;    /* ms between audio and reference PTS/DTS, 0 = no check. Default 0 */
  size_t max_pcr_delta;     /* ms between audio PTS/DTS and PCR, 0 = no check. Default 0 */
  size_t pcr_freq_ms;       /* ms between two PCRs, 0 = no check. Default 0 */
  bool access_log_alerts;   /* write the terse form of alerts too. Default false */
  size_t dump_stats_period; /* seconds between periodic statistics, 0 = never. Default 0 */
  size_t max_ndat_pcount;   /* packets of a program until silent tracks are looked for, 0 = only at
                               the end. Default 0 */
  bool cc_track;            /* check continuity counters. Default true */
  long cc_max_ms0_ms;       /* ms on the monotonic clock between two unexpected counters of 0 from
                               which the second is a reset, not a break; 0 = always a break.
                               Default 30 */
  tracking_opt trk;         /* trace switches. Default all false */
  bool no_rlog;             /* keep alerts out of the application log. Default false */
} tsan_config;

typedef struct tsan_ctx *tsan_t;

/* Fills `cfg` with what the korva program starts with; the source tag is empty then. */
KORVA_API void tsan_default_config(tsan_config *cfg);

/* Creates the context of one source. `src`: its tag, at most 63 characters of it; null: the tag of
 * `cfg`. `cfg` is copied. Returns null when memory is refused, with 12 (ENOMEM) in `err` if given;
 * `err` is left alone on success. The caller owns the context: tsan_free(). */
KORVA_API tsan_t tsan_init(const char *src, const tsan_config *cfg, int *err);

/* Releases a context; null: nothing. */
KORVA_API void tsan_free(tsan_t ctx);

/* Puts a context back to where it was behind tsan_init(). Settings, read-out and what
 * tsan_survive(), tsan_set_log() and tsan_stop_on() have set stay. Not to be called by a callback
 * of this context. */
KORVA_API void tsan_reset(tsan_t ctx);

/* What came of a packet. Later versions can add results: whatever is not 0 is an end. */
typedef enum tsan_result {
  TSAN_OK = 0,         /* go on */
  TSAN_NO_SYNC = -1,   /* the packet does not begin with the sync byte */
  TSAN_STOPPED = -4,   /* tsan_stop() was called */
  TSAN_NO_CLOCK = -5,  /* the clock cannot be read (only with tsan_survive()) */
  TSAN_GAVE_UP = -16,  /* nothing could be analyzed within max_skip_pkts packets */
  TSAN_BAD_TABLE = -74 /* one of the four conditions named on top (only with tsan_survive()) */
} tsan_result;

/* Name of a result: "OK", "NO-SYNC", "STOPPED", "NO-CLOCK", "GAVE-UP", "BAD-TABLE"; null for a
 * number that is none. */
KORVA_API const char *tsan_result_name(int result);

/* Analyzes one packet of 188 bytes, in place, at any alignment; nothing of it is kept. Any content
 * is safe, but for the four conditions named on top. Returns a tsan_result. After one other than 0
 * the context still serves for the closing report. TSAN_STOPPED, TSAN_NO_CLOCK and TSAN_BAD_TABLE
 * stay: later packets are not looked at, and give the same result, until tsan_reset(). */
KORVA_API int tsan_process(tsan_t ctx, const uint8_t *bytes);

/* Whether this context outlives the four conditions named on top and a clock that cannot be read:
 * the run then ends with TSAN_BAD_TABLE or TSAN_NO_CLOCK, behind the packet that brought it, and a
 * line of KORVA_ERR in the application log says why. False at first: they end the process. */
KORVA_API void tsan_survive(tsan_t ctx, bool survives);

/* Ends the run, with TSAN_STOPPED. Callbacks may call it for their own context: the packet at hand
 * is analyzed to its end. */
KORVA_API void tsan_stop(tsan_t ctx);

/* What became of packets handed over together. The layout of the record is fixed. */
typedef struct tsan_many {
  size_t count; /* packets of which tsan_process() would have returned 0 */
  int code;     /* the tsan_result that ended it; 0 = the last packet, or tsan_stop_on() */
} tsan_many;

/* Analyzes `count` packets, each `stride` bytes (188 or more) behind the one before: as as many
 * calls of tsan_process(), but faster, since bytes ahead are prefetched, also a little behind the
 * last packet. Ends behind a packet of which the result is not 0; but with -1 *before* a packet
 * that does not begin with the sync byte. Nothing has been done with that one: the caller can look
 * for the next, or hand it to tsan_process() to have it reported.
 *
 * The bytes may be memory that others write to meanwhile, such as a mapped file: findings are then
 * about what was read, and no bound is overstepped. */
KORVA_API tsan_many tsan_process_many(tsan_t ctx, const uint8_t *bytes, size_t count,
                                      size_t stride);

/* Makes tsan_process_many() end before the next packet once `*flag`, which the caller keeps and a
 * signal handler may set, is not 0. Null: it ends by itself only, as at the start. */
KORVA_API void tsan_stop_on(tsan_t ctx, const volatile sig_atomic_t *flag);

/* Takes a line of a context: its severity (KORVA_WARN ..., KORVA_TERSE for what else goes to the
 * access log; log.h), the group of the log, empty if it has none, and the text, without time and
 * line end. They are valid during the call only. */
typedef void (*tsan_line_fn)(void *opaque, int level, const char *group, const char *text);

/* Has the lines of a context handed to `on_line`, in place of the streams of the two logs and of
 * syslog; null: to those again. `opaque` is handed on. Which lines are made does not change: those
 * of the levels that korva_log_set_modules() lets pass, terse alerts with access_log_alerts. The
 * tables that traces show come line by line, as KORVA_INFO. What is not about a context (the
 * settings, tsan_init()) goes to the logs. `on_line` runs on the thread that calls the operation;
 * it must not throw, nor call an operation on this context, but for tsan_stop(). */
KORVA_API void tsan_set_log(tsan_t ctx, tsan_line_fn on_line, void *opaque);

/* Index of the packet handed over last, 1 being the first; 0 before it. */
KORVA_API uint64_t tsan_get_pidx(tsan_t ctx);

/* Overwrites that index: the next packet gets `idx` + 1. Logged as a warning. */
KORVA_API void tsan_set_pidx(tsan_t ctx, uint64_t idx);

/* Records a loss of sync that the caller's framing has found. They are counted in windows of 2
 * seconds: the first call begins one, and so does a call when the last one is over. Returns 0, or
 * -1 from the tenth call of a window on: time to give up. Once it has, each later call returns -1.
 */
KORVA_API int tsan_alert_lostsync(tsan_t ctx);

/* Looks for tracks that have received no packet so far and reports each; call it at the end, before
 * the report. */
KORVA_API void tsan_check_ndat(tsan_t ctx);

/* For callers that receive datagrams of several packets: closes the current datagram. Call it
 * before the first packet of each; losses that hit several streams of one datagram by the same
 * amount are then reported as one (CC-MLR). Does nothing while the last packet belongs to no
 * program. */
KORVA_API void tsan_next_seg(tsan_t ctx);

/* Writes the statistics report to `out`, which stays the caller's. May be called at any time. */
KORVA_API void tsan_dump_stats(FILE *out, tsan_t ctx);

/* Writes the statistics as STAT records to the access log. */
KORVA_API void tsan_alog_stats(tsan_t ctx);

/* Does both when dump_stats_period seconds have passed since the last report (the first call only
 * starts the clock). With a null `out` there is no report, only the records, and the clock is not
 * started again: every later call writes them. Returns 1 when it wrote something, else 0. */
KORVA_API int tsan_check_dump_stats(FILE *out, tsan_t ctx);

/* Starts a new local period of the measured values of every program; counters and global values
 * stay. */
KORVA_API void tsan_reset_local_stats(tsan_t ctx);

/* Fills `cfg` from a libconfig group. A group that does not say "enabled = true" switches the
 * analyzer off and changes nothing else. In an enabled one, an absent key takes these defaults:
 * max_skipped_pkts 9000, max_pdts_delta_ms 500, max_ndat_pcount 10000, source_tag empty, every
 * other size 0, access_log_alerts false. Group `cc`: track (false), max_zreset_time (seconds, 0);
 * without it, cc_track and cc_max_ms0_ms stay. With any setting `track` beside it, the trace
 * switches are read from the group itself. Returns 0 or the code of the first key that failed,
 * which is reported; fields of later keys are then untouched. */
KORVA_API int tsan_load_config(const struct config_setting_t *section, tsan_config *cfg);

/* Applies one word of the program's -A option: on, enable, off, disable, or name=value with the
 * names skipped_pkts (packets), pdts_delta, pcr_delta, pcr_freq, max_zreset_time (ms) and cc_track
 * (0/1); other names change nothing. Returns 0, 22 (EINVAL) for a malformed word or a negative
 * value, or the errno of a refused allocation; failures are reported. */
KORVA_API int tsan_cli_opt(const char *opt, tsan_config *cfg);

/* Applies one word of the program's -k option: "all" for the first five trace switches, or any text
 * that holds sdt_i, misc_i, pdts_u, pat_pmt, pcr_u, cc_t, pmt_d or pat_d. Each call first clears
 * those five. Always returns 0. */
KORVA_API int tsan_xtrack_opt(const char *opt, tsan_config *cfg);

/* Prints the settings, headed by `name`. */
KORVA_API void tsan_dump_config(FILE *out, const char *name, const tsan_config *cfg);

#ifdef __cplusplus
}
#endif

#endif
