/* Audit of a transport stream by ISO/IEC 13818-1 and ETSI TR 101 290: hand it the packets in their
 * order, and learn what is wrong with the stream, when, where and how much.
 *
 *   static void on_finding(void *opaque, const audit_finding *finding) { ... }
 *
 *   audit_config cfg = {.size = sizeof cfg};
 *   audit_default_config(AUDIT_MPEG, &cfg);
 *   cfg.on_finding = on_finding;
 *   int err = 0;
 *   audit_t audit = audit_init(&cfg, &err);
 *   if (!audit)
 *     return err;
 *   while (next_packet(pkt))
 *     audit_packet(audit, pkt, offset);
 *   audit_end(audit, AUDIT_COMPLETE);
 *   audit_report report = {.size = sizeof report};
 *   audit_get_report(audit, &report);
 *   audit_free(audit);
 *
 * Bytes in which packets have to be found first go through audit_feed(), datagrams through
 * audit_datagram().
 *
 * A finding is delivered when nothing can be added to it any more: events of one kind on one PID
 * that follow each other within a second are one finding. Times are seconds of the stream's own
 * clock (its PCRs), 0 where that began to run; NAN before it ran.
 *
 * Threads: an audit is used by one thread at a time; any number of them may run in any number of
 * threads. They share nothing. Callbacks run on the thread that hands packets over or ends the
 * capture; they must not throw, and of the operations on their audit they may call audit_stop().
 * Pointers must not be null where nothing is said of it. No operation throws, prints, reads a
 * clock, changes a signal or ends the process, whatever the bytes.
 *
 * Versions: each record begins with its `size` in bytes, which the caller sets in those that it
 * hands in, and the library in those that callbacks get. Later versions add fields at the end. Of a
 * record that is shorter than the library's only its fields are read or written, and what it lacks
 * is taken as 0; of a longer one the rest is not read, and filled with 0. Enumerators keep their
 * numbers, and later versions have more of them: a program goes on at a number that it does not
 * know, for which the library has the name. What callbacks get and what that points to is valid
 * during the call, texts of which the type is `const char *` as long as the library.
 *
 * Codes, where an operation returns an int: 0; 12 (ENOMEM): memory was refused; 22 (EINVAL): an
 * argument that cannot be; 125 (ECANCELED): audit_stop() was called. */
#ifndef VANTOR_AUDIT_AUDIT_H
#define VANTOR_AUDIT_AUDIT_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

/* Marks what the shared library exports. */
#ifndef KORVA_API
#define KORVA_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Where an enumeration ends with a plural, that is how many numbers this header knows. */

/* By whose rules repetition is judged: mpeg, no service information; dvb, with that of EN 300 468;
 * atsc, the shorter intervals of A/65; ott, segments of HLS or DASH joined: a table only has to
 * come. */
typedef enum audit_profile {
  AUDIT_MPEG = 0,
  AUDIT_DVB = 1,
  AUDIT_ATSC = 2,
  AUDIT_OTT = 3,
  AUDIT_PROFILES
} audit_profile;

/* Limits, 0 to 1e9: what is greater fails, what is equal does not; 0 switches the check off.
 * Milliseconds, PCR_ACCURACY_NS nanoseconds. */
typedef enum audit_limit {
  AUDIT_PAT_MS = 0,
  AUDIT_PMT_MS = 1,
  AUDIT_PCR_MS = 2,
  AUDIT_PCR_ACCURACY_NS = 3,
  AUDIT_PTS_MS = 4,
  AUDIT_PID_GAP_MS = 5,
  AUDIT_DELAY_MS = 6,
  AUDIT_VIDEO_STEP_MS = 7,
  AUDIT_AUDIO_STEP_MS = 8,
  AUDIT_NIT_MS = 9,
  AUDIT_SDT_MS = 10,
  AUDIT_EIT_MS = 11,
  AUDIT_TDT_MS = 12,
  AUDIT_LIMITS
} audit_limit;

/* What is found, with the fields that tell of it. Clauses are those of ISO/IEC 13818-1; sync and
 * repetition are judged by ETSI TR 101 290, 5.2. */
typedef enum audit_kind {
  AUDIT_SYNC_LOSS = 0, /* sync lost (TR 101 290, 1.1): lost_bytes */
  AUDIT_SYNC_BYTE = 1, /* one packet without its sync byte (2.4.3.2) */
  AUDIT_TEI = 2,       /* transport_error_indicator set (2.4.3.3) */
  AUDIT_CC_LOSS =
      3, /* packets lost (2.4.3.3): lost (or 16 more, or 32 ...), last_cc, cc, after_sync */
  AUDIT_CC_DUP = 4,   /* a packet came more often than twice (2.4.3.3): cc */
  AUDIT_CC_ORDER = 5, /* packets out of order (2.4.3.3): displaced */
  AUDIT_CC_AF = 6,    /* counter moved on a packet without payload (2.4.3.3): moved, last_cc, cc */
  AUDIT_PSI_CRC = 7,  /* CRC_32 wrong (Annex A): table_id */
  AUDIT_PSI_SYNTAX = 8,     /* section that cannot be (2.4.4): table_id where it is known */
  AUDIT_PSI_TABLE = 9,      /* table_id that does not belong on the PID (2.4.4.4): table_id */
  AUDIT_PSI_SCRAMBLED = 10, /* tables scrambled */
  AUDIT_PSI_VERSION = 11,  /* content changed, version_number did not (2.4.4.5): table_id, change */
  AUDIT_PSI_GAP = 12,      /* table too seldom: table, ms, to_end */
  AUDIT_PCR_GAP = 13,      /* PCRs too far apart (2.7.2): ms; at the end also to_end, never */
  AUDIT_PCR_JUMP = 14,     /* PCR jumped without being announced (2.4.3.5): jump_ms */
  AUDIT_PCR_ACCURACY = 15, /* PCRs off their line (2.4.2.2): ns */
  AUDIT_PTS_GAP = 16,      /* PTSs too far apart (2.7.4): ms */
  AUDIT_STAMP_LATE = 17,   /* decoding time before arrival: ms */
  AUDIT_STAMP_DELAY = 18,  /* decoding time too long after arrival (2.4.2.3): ms */
  AUDIT_STAMP_BASE = 19,   /* time stamps of another time base: ms */
  AUDIT_STAMP_ORDER = 20,  /* presented before it is decoded (2.4.3.7): ms */
  AUDIT_STAMP_BACK = 21,   /* decoding time went back: step_ms */
  AUDIT_STAMP_JUMP = 22,   /* delay jumped: step_ms */
  AUDIT_PID_GAP = 23,      /* stream without packets: ms, to_end, never */
  AUDIT_SCRAMBLED = 24,    /* scrambled, though no CA descriptor says so */
  AUDIT_CAT_MISSING = 25,  /* scrambled packets, but no CAT */
  AUDIT_RATE_LOSS = 26,    /* packets missing by the constant rate: lost, counted */
  AUDIT_AFC_RESERVED = 27, /* adaptation_field_control 00 (2.4.3.3) */
  AUDIT_AF_SYNTAX = 28,    /* adaptation field that does not fit (2.4.3.4) */
  AUDIT_PID_UNREFERENCED = 29, /* packets of a PID that no table lists: packets */
  AUDIT_LEADING = 30,          /* bytes before the first packet: bytes */
  AUDIT_PAT_CHANGE = 31,       /* announced change of the PAT: change */
  AUDIT_PMT_CHANGE = 32,       /* announced change of a PMT: change */
  AUDIT_PID_ABSENT = 33,       /* listed stream, neither video nor audio, without a packet */
  AUDIT_KINDS
} audit_kind;

typedef enum audit_severity { AUDIT_NOTE = 0, AUDIT_WARN = 1, AUDIT_FAIL = 2 } audit_severity;

/* Tables that have to recur. */
typedef enum audit_table {
  AUDIT_NO_TABLE = 0,
  AUDIT_PAT = 1,
  AUDIT_PMT = 2,
  AUDIT_NIT = 3,
  AUDIT_SDT = 4,
  AUDIT_EIT_P = 5, /* present/following, section 0: the present event */
  AUDIT_EIT_F = 6, /* section 1: the following event */
  AUDIT_TDT = 7,
  AUDIT_TABLES
} audit_table;

/* A list of PIDs or program_numbers. */
typedef struct audit_list {
  const uint16_t *items;
  size_t count;
} audit_list;

/* What changed in a PAT (added, removed: program_numbers) or a PMT (added, removed, retyped: PIDs;
 * descriptors: PIDs whose descriptors differ, 0 for those of the program). */
typedef struct audit_change {
  size_t size;
  audit_list added, removed, retyped, descriptors;
  int32_t pcr_pid_old, pcr_pid_new; /* PCR_PID, -1 where it is the same */
} audit_change;

/* One finding. Fields that its kind does not name are 0 (table_id -1, times and measures NAN). */
typedef struct audit_finding {
  size_t size;
  audit_kind kind;
  audit_severity severity;
  int32_t pid;            /* -1: none */
  int32_t program_number; /* the one program that it belongs to, -1: none or several */
  uint64_t packet;        /* of the first event, 1-based */
  uint64_t offset;        /* of its sync byte in the file, bytes */
  double time;            /* s; NAN before the clock ran */
  uint64_t last_packet;   /* of the last event */
  double last_time;
  uint64_t events;
  uint64_t lost, counted, lost_bytes, displaced, moved, packets, bytes; /* sums over the events */
  double ms, jump_ms, step_ms, ns; /* the greatest by size; NAN: not to be said */
  int32_t table_id, last_cc, cc;   /* of the first event */
  bool after_sync;                 /* the loss follows one of sync */
  bool to_end;                     /* the gap lasts to the end of the capture */
  bool never;                      /* nothing ever came */
  audit_table table;
  const char *indicator;      /* id of the indicator that it fails, "1.4"; or null */
  const audit_change *change; /* or null */
} audit_finding;

typedef enum audit_sample_kind {
  AUDIT_PCR_INTERVAL = 0, /* from one PCR of a PID to its next, ms */
  AUDIT_PTS_DELAY = 1,    /* PTS behind the program's clock, ms */
  AUDIT_DTS_DELAY = 2,    /* DTS behind the program's clock, ms */
  AUDIT_BITRATE = 3,      /* of a PID over a second or little more, bit/s */
  AUDIT_SAMPLE_KINDS
} audit_sample_kind;

/* One measured value. */
typedef struct audit_sample {
  size_t size;
  audit_sample_kind kind;
  uint16_t pid;
  double time; /* s */
  double value;
} audit_sample;

enum {
  AUDIT_LIMITS_ROOM = 32, /* in records, for limits and kinds that are still to come */
  AUDIT_KINDS_ROOM = 64
};

typedef struct audit_config {
  size_t size; /* of this record */
  audit_profile profile;
  double limits[AUDIT_LIMITS_ROOM]; /* by audit_limit */
  uint64_t first_packet; /* number of the first packet that is handed in; 0 is taken for 1 */
  void *opaque;          /* handed to the callback */
  void (*on_finding)(void *opaque, const audit_finding *finding); /* or null */
  void (*on_sample)(void *opaque, const audit_sample *sample);    /* or null */
} audit_config;

/* Fills a record, of which `size` has to be set, with a profile's limits and no callback. Returns
 * 0, or 22 for an unknown profile or a record without a size. */
KORVA_API int audit_default_config(audit_profile profile, audit_config *cfg);

/* Names as options, logs and JSON have them: "mpeg", "pat_ms", "CC-LOSS", "fail", "PAT"; null for a
 * number that is none. */
KORVA_API const char *audit_profile_name(audit_profile profile);
KORVA_API const char *audit_limit_name(audit_limit limit);
KORVA_API const char *audit_kind_name(audit_kind kind);
KORVA_API const char *audit_severity_name(audit_severity severity);
KORVA_API const char *audit_table_name(audit_table table);

/* How serious a kind is; PSI-TABLE and PSI-GAP can be less: a finding's own severity holds. */
KORVA_API audit_severity audit_kind_severity(audit_kind kind);

typedef struct audit_ctx *audit_t;

/* A new audit, which the caller owns: audit_free(). The record is copied. Returns null with 12 or
 * 22 (an unknown profile, a limit out of its range, no size) in `err`, unless that is null; it is
 * left alone on success. */
KORVA_API audit_t audit_init(const audit_config *cfg, int *err);

/* Releases an audit; null is one that is not there. */
KORVA_API void audit_free(audit_t audit);

/* Takes the next packet: 188 bytes from its sync byte on, which has been looked at, and their
 * offset in the stream, which findings repeat. The bytes are the caller's again when it returns.
 * Returns 0; 12: the packet could not be taken in full, the audit goes on and its report says that
 * it is incomplete; 22: audit_end() was called; 125: audit_stop() was called, packets behind the
 * one at which that happened are not taken. */
KORVA_API int audit_packet(audit_t audit, const uint8_t *bytes, uint64_t offset);

/* The same for `count` packets, `stride` bytes (188 or more) from one to the next. Faster, since
 * bytes ahead are prefetched, also a little behind the last packet. */
KORVA_API int audit_packets(audit_t audit, const uint8_t *bytes, size_t count, size_t stride,
                            uint64_t offset);

/* The same for at most `count` packets, of which the first has its sync byte: stops in front of one
 * that has none. `taken`: how many were taken. */
KORVA_API int audit_follow(audit_t audit, const uint8_t *bytes, size_t count, size_t stride,
                           uint64_t offset, size_t *taken);

/* The same for a datagram of `size` bytes, whole packets from its first byte on, `stride` bytes
 * (188; 204 with error correction) from one to the next. Sync bytes are looked at: one wrong packet
 * is SYNC-BYTE, several in a row are SYNC-LOSS, and so are bytes behind the last whole one. Returns
 * 22 also for a stride below 188. */
KORVA_API int audit_datagram(audit_t audit, const uint8_t *bytes, size_t size, size_t stride,
                             uint64_t offset);

/* What only a reader of the bytes sees: bytes before the first packet; a packet whose sync byte is
 * wrong while the next one's is right (it counts, nothing in it is used); sync lost at `offset`,
 * until packets go on `lost_bytes` later. Returns as audit_packet(). */
KORVA_API int audit_leading(audit_t audit, uint64_t bytes);
KORVA_API int audit_sync_byte(audit_t audit, uint64_t offset);
KORVA_API int audit_sync_loss(audit_t audit, uint64_t offset, uint64_t lost_bytes);

/* Asks for the end of the run, from a callback too: what is handed over from then on is not taken,
 * and 125 says so. What has come is judged and can be read out as ever. */
KORVA_API void audit_stop(audit_t audit);

/* How a capture ended. */
typedef enum audit_ending {
  AUDIT_COMPLETE = 0,
  AUDIT_LIMIT = 1,       /* as many packets as were wanted */
  AUDIT_INTERRUPTED = 2, /* the rest was not read, or could not be */
} audit_ending;

/* Ends the capture: what was open is judged and delivered, also when a callback asks for the end
 * meanwhile. No packet may follow; a second call does nothing. Returns 0; 12: not all could be
 * judged, which the report says too; 22 for an unknown ending. */
KORVA_API int audit_end(audit_t audit, audit_ending ending);

typedef enum audit_verdict {
  AUDIT_PASS = 0,
  AUDIT_FAILED = 1,
  AUDIT_INCOMPLETE = 2,
  AUDIT_NOTHING_CHECKED = 3,
  AUDIT_VERDICTS
} audit_verdict;

/* "pass", "fail", "incomplete", "nothing-checked"; null for a number that is none. */
KORVA_API const char *audit_verdict_name(audit_verdict verdict);

typedef struct audit_report {
  size_t size;
  audit_verdict verdict;
  uint64_t packets;
  uint64_t lost_bytes;
  double duration;                     /* s, NAN without a clock */
  double bitrate;                      /* bit/s of the whole stream, NAN without a clock */
  int cbr;                             /* 1: constant rate, 0: not, -1: cannot be told */
  double spread;                       /* packets, by which the rate varies */
  uint64_t fails;                      /* findings of severity fail */
  uint64_t findings[AUDIT_KINDS_ROOM]; /* by kind */
  uint64_t undelivered;                /* of them counted only: too many of their kind */
  size_t programs;
  bool out_of_memory; /* something could not be kept */
} audit_report;

typedef struct audit_program {
  size_t size;
  uint16_t program_number, pmt_pid;
  int32_t pcr_pid; /* -1: its PMT never came */
  size_t streams;
} audit_program;

typedef struct audit_stream {
  size_t size;
  uint16_t pid;
  uint8_t stream_type;
  char kind; /* 'V', 'A', 'S' (subtitles, teletext), 'D' (data) */
  bool is_protected;
  char language[4]; /* ISO 639-2 code of its descriptor, or empty */
} audit_stream;

/* What one PID carried. Measures are NAN where there were none. */
typedef struct audit_pid {
  size_t size;
  uint16_t pid;
  char what[48]; /* "PAT", "PMT of 1", "V H.264", "A AAC eng", "null", "unreferenced" ... */
  const uint16_t *program_numbers; /* that list it; until the next audit_get_pid() */
  size_t programs;
  uint64_t packets, scrambled, tei, duplicates, lost, pcrs, over_40ms;
  double share;                              /* of all packets that have a PID, 0 to 1 */
  double bitrate, bitrate_min, bitrate_max;  /* bit/s: of the whole, of whole seconds */
  double pcr_max_ms, pcr_min_ms, pcr_avg_ms; /* intervals of PCRs */
  double pts_delay_ms[3], dts_delay_ms[3];   /* least, average, greatest */
  double accuracy_ns[2];                     /* least, greatest */
  double longest_gap_ms;
} audit_pid;

typedef enum audit_state {
  AUDIT_STATE_PASS = 0,
  AUDIT_STATE_FAIL = 1,
  AUDIT_STATE_WARN = 2,
  AUDIT_STATE_OFF = 3,
  AUDIT_STATE_NOT_MEASURABLE = 4,
  AUDIT_STATES
} audit_state;

/* "pass", "fail", "warn", "off", "not-measurable"; null for a number that is none. */
KORVA_API const char *audit_state_name(audit_state state);

/* One indicator of ETSI TR 101 290, clause 5.2. */
typedef struct audit_indicator {
  size_t size;
  const char *id;   /* "1.3a" */
  const char *name; /* as there */
  audit_state state;
  uint64_t findings;
  uint64_t first_packet; /* 0: none */
  int32_t first_pid;     /* -1: none */
  double first_time, worst, limit;
  const char *unit; /* of worst and limit: "ms", "ns" */
  char reason[64];  /* why it is not measurable, or empty */
} audit_indicator;

/* Fill a record, of which `size` has to be set; it stays as it is. At any time between calls:
 * before audit_end() they tell what is known so far, findings that are not yet delivered included
 * in counts only. Programs and their streams come in the order of the PAT and the PMTs, PIDs of
 * which packets came in rising order (before audit_end(): as they came first), indicators in that
 * of TR 101 290; indexes begin at 0. Return 0, or 22 for a record without a size or an index that
 * does not exist, which ends a loop over all. */
KORVA_API int audit_get_report(audit_t audit, audit_report *report);
KORVA_API int audit_get_program(audit_t audit, size_t index, audit_program *program);
KORVA_API int audit_get_stream(audit_t audit, size_t program, size_t index, audit_stream *stream);
KORVA_API int audit_get_pid(audit_t audit, size_t index, audit_pid *pid);
KORVA_API int audit_get_indicator(audit_t audit, size_t index, audit_indicator *indicator);

/* Packets in bytes of which nobody has said where they begin: finds the grid of sync bytes, 188,
 * 192, 204 or 208 apart, follows it, and finds it again, as the program does in a file.
 *
 *   audit_feed_t feed = audit_feed_init(audit, 0, &err);
 *   while ((size = read(fd, bytes, sizeof bytes)) > 0)
 *     audit_feed(feed, bytes, size);
 *   audit_feed_end(feed);
 *   audit_feed_free(feed);
 *   audit_end(audit, AUDIT_COMPLETE);
 *
 * Where sync has to be found, that is done with what is needed at hand: up to 54 KB. What is found
 * does not depend on how the bytes are cut into pieces. */
typedef struct audit_feed_ctx *audit_feed_t;

/* A feed of an audit, which has to outlive it. `packet_size`: 188, 192, 204, 208, or 0: to be
 * found. Returns null with 12 or 22 (another size) in `err`, unless that is null. */
KORVA_API audit_feed_t audit_feed_init(audit_t audit, size_t packet_size, int *err);

/* Takes the next `size` bytes (any number), which are the caller's again when it returns. Returns
 * as audit_packet(); nothing is taken any more after 22 and 125. */
KORVA_API int audit_feed(audit_feed_t feed, const uint8_t *bytes, size_t size);

/* Says that no more bytes come, so that the last ones are taken. Returns as audit_feed(). */
KORVA_API int audit_feed_end(audit_feed_t feed);

/* Releases a feed; null is one that is not there. */
KORVA_API void audit_feed_free(audit_feed_t feed);

typedef struct audit_feed_info {
  size_t size;
  size_t packet_size; /* bytes, 0: no packet so far */
  uint64_t bytes;     /* that were handed over */
  uint64_t leading_bytes;
  uint64_t tail_bytes; /* behind the last packet, after audit_feed_end() */
} audit_feed_info;

/* Fills a record as audit_get_report() does. */
KORVA_API int audit_get_feed(audit_feed_t feed, audit_feed_info *info);

#ifdef __cplusplus
}
#endif

#endif
