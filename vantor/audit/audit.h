/* Audit of a transport stream by ISO/IEC 13818-1 and ETSI TR 101 290: hand it the packets in their
 * order, and learn what is wrong with the stream, when, where and how much.
 *
 *   static void on_finding(void *opaque, const audit_finding *finding) { ... }
 *
 *   audit_config cfg;
 *   audit_default_config(AUDIT_MPEG, &cfg);
 *   cfg.on_finding = on_finding;
 *   audit_t audit = audit_init(&cfg);
 *   if (!audit)
 *     return ENOMEM;
 *   while (next_packet(pkt))
 *     audit_packet(audit, pkt, offset);
 *   audit_end(audit, AUDIT_COMPLETE);
 *   audit_report report = {.size = sizeof report};
 *   audit_get_report(audit, &report);
 *   audit_free(audit);
 *
 * A finding is delivered when nothing can be added to it any more: events of one kind on one PID
 * that follow each other within a second are one finding. Times are seconds of the stream's own
 * clock (its PCRs), 0 where that began to run; NAN before it ran.
 *
 * Threads: an audit is used by one thread at a time; several may run in several threads at once.
 * They share nothing. Records and what they point to are valid during the call that hands them out.
 * The callback runs on the thread that calls, must not throw and must not call an operation that
 * changes the audit. Pointers must not be null where nothing is said of it. No operation throws,
 * prints, reads a clock or ends the process. */
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

/* By whose rules repetition is judged: mpeg, no service information; dvb, with that of EN 300 468;
 * atsc, the shorter intervals of A/65; ott, segments of HLS or DASH joined: a table only has to
 * come. */
typedef enum audit_profile {
  AUDIT_MPEG,
  AUDIT_DVB,
  AUDIT_ATSC,
  AUDIT_OTT,
  AUDIT_PROFILES
} audit_profile;

/* Limits: what is greater fails, what is equal does not; 0 switches the check off. Milliseconds,
 * PCR_ACCURACY_NS nanoseconds. */
typedef enum audit_limit {
  AUDIT_PAT_MS,
  AUDIT_PMT_MS,
  AUDIT_PCR_MS,
  AUDIT_PCR_ACCURACY_NS,
  AUDIT_PTS_MS,
  AUDIT_PID_GAP_MS,
  AUDIT_DELAY_MS,
  AUDIT_VIDEO_STEP_MS,
  AUDIT_AUDIO_STEP_MS,
  AUDIT_NIT_MS,
  AUDIT_SDT_MS,
  AUDIT_EIT_MS,
  AUDIT_TDT_MS,
  AUDIT_LIMITS
} audit_limit;

typedef enum audit_kind {
  AUDIT_SYNC_LOSS,        /* sync lost: lost_bytes */
  AUDIT_SYNC_BYTE,        /* one packet without its sync byte */
  AUDIT_TEI,              /* transport_error_indicator set */
  AUDIT_CC_LOSS,          /* packets lost: lost (or 16 more, or 32 ...), last_cc, cc, after_sync */
  AUDIT_CC_DUP,           /* a packet came more often than twice: cc */
  AUDIT_CC_ORDER,         /* packets out of order: displaced */
  AUDIT_CC_AF,            /* counter moved on a packet without payload: moved, last_cc, cc */
  AUDIT_PSI_CRC,          /* CRC_32 wrong: table_id */
  AUDIT_PSI_SYNTAX,       /* section that cannot be: table_id where it is known */
  AUDIT_PSI_TABLE,        /* table_id that does not belong on the PID: table_id */
  AUDIT_PSI_SCRAMBLED,    /* tables scrambled */
  AUDIT_PSI_VERSION,      /* content changed, version_number did not: table_id, change */
  AUDIT_PSI_GAP,          /* table too seldom: table, ms, to_end */
  AUDIT_PCR_GAP,          /* PCRs too far apart: ms; at the end also to_end, never */
  AUDIT_PCR_JUMP,         /* PCR jumped without being announced: jump_ms */
  AUDIT_PCR_ACCURACY,     /* PCRs off their line: ns */
  AUDIT_PTS_GAP,          /* PTSs too far apart: ms */
  AUDIT_STAMP_LATE,       /* decoding time before arrival: ms */
  AUDIT_STAMP_DELAY,      /* decoding time too long after arrival: ms */
  AUDIT_STAMP_BASE,       /* time stamps of another time base: ms */
  AUDIT_STAMP_ORDER,      /* presented before it is decoded: ms */
  AUDIT_STAMP_BACK,       /* decoding time went back: step_ms */
  AUDIT_STAMP_JUMP,       /* delay jumped: step_ms */
  AUDIT_PID_GAP,          /* stream without packets: ms, to_end, never */
  AUDIT_SCRAMBLED,        /* scrambled, though no CA descriptor says so */
  AUDIT_CAT_MISSING,      /* scrambled packets, but no CAT */
  AUDIT_RATE_LOSS,        /* packets missing by the constant rate: lost, counted */
  AUDIT_AFC_RESERVED,     /* adaptation_field_control 00 */
  AUDIT_AF_SYNTAX,        /* adaptation field that does not fit */
  AUDIT_PID_UNREFERENCED, /* packets of a PID that no table lists: packets */
  AUDIT_LEADING,          /* bytes before the first packet: bytes */
  AUDIT_PAT_CHANGE,       /* announced change of the PAT: change */
  AUDIT_PMT_CHANGE,       /* announced change of a PMT: change */
  AUDIT_PID_ABSENT,       /* listed stream, neither video nor audio, without a packet */
  AUDIT_KINDS
} audit_kind;

typedef enum audit_severity { AUDIT_NOTE, AUDIT_WARN, AUDIT_FAIL } audit_severity;

/* Tables that have to recur. */
typedef enum audit_table {
  AUDIT_NO_TABLE,
  AUDIT_PAT,
  AUDIT_PMT,
  AUDIT_NIT,
  AUDIT_SDT,
  AUDIT_EIT_P, /* present/following, section 0: the present event */
  AUDIT_EIT_F, /* section 1: the following event */
  AUDIT_TDT,
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
  AUDIT_PCR_INTERVAL, /* from one PCR of a PID to its next, ms */
  AUDIT_PTS_DELAY,    /* PTS behind the program's clock, ms */
  AUDIT_DTS_DELAY,    /* DTS behind the program's clock, ms */
  AUDIT_BITRATE,      /* of a PID over a second or little more, bit/s */
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

typedef struct audit_config {
  size_t size; /* of this record */
  audit_profile profile;
  double limits[AUDIT_LIMITS];
  uint64_t first_packet; /* number of the first packet that is handed in; 0 is taken for 1 */
  void *opaque;          /* handed to the callback */
  void (*on_finding)(void *opaque, const audit_finding *finding); /* or null */
  void (*on_sample)(void *opaque, const audit_sample *sample);    /* or null */
} audit_config;

/* Fills a record with a profile's limits and no callback. */
KORVA_API void audit_default_config(audit_profile profile, audit_config *cfg);

/* Names as options, logs and JSON have them: "mpeg", "pat_ms", "CC-LOSS", "fail", "PAT"; null for a
 * number that is none. */
KORVA_API const char *audit_profile_name(audit_profile profile);
KORVA_API const char *audit_limit_name(audit_limit limit);
KORVA_API const char *audit_kind_name(audit_kind kind);
KORVA_API const char *audit_severity_name(audit_severity severity);
KORVA_API const char *audit_table_name(audit_table table);

/* How serious a kind is; PSI-TABLE and PSI-GAP can be less: a finding's own severity holds. */
KORVA_API audit_severity audit_kind_severity(audit_kind kind);

/* A new audit, or null when there is no memory for it or the record is not a known one. */
typedef struct audit_ctx *audit_t;
KORVA_API audit_t audit_init(const audit_config *cfg);

/* Releases an audit; null is one that is not there. */
KORVA_API void audit_free(audit_t audit);

/* Takes the next packet: 188 bytes from its sync byte on, which has been looked at, and their
 * offset in the file. Returns 0, or 12 (ENOMEM): the packet could not be taken in full, the audit
 * goes on and its report says that it is incomplete. */
KORVA_API int audit_packet(audit_t audit, const uint8_t *bytes, uint64_t offset);

/* The same for `count` packets, `stride` bytes from one to the next. */
KORVA_API int audit_packets(audit_t audit, const uint8_t *bytes, size_t count, size_t stride,
                            uint64_t offset);

/* The same for at most `count` packets, the first of which has its sync byte: stops in front of one
 * that has none. Returns how many were taken; of memory that was refused the report tells. */
KORVA_API size_t audit_follow(audit_t audit, const uint8_t *bytes, size_t count, size_t stride,
                              uint64_t offset);

/* What only a reader of the bytes sees: bytes before the first packet; a packet whose sync byte is
 * wrong while the next one's is right (it counts, nothing in it is used); sync lost at `offset`,
 * until packets go on `lost_bytes` later. Returns as audit_packet(). */
KORVA_API int audit_leading(audit_t audit, uint64_t bytes);
KORVA_API int audit_sync_byte(audit_t audit, uint64_t offset);
KORVA_API int audit_sync_loss(audit_t audit, uint64_t offset, uint64_t lost_bytes);

/* How a capture ended. */
typedef enum audit_ending {
  AUDIT_COMPLETE,
  AUDIT_LIMIT,       /* as many packets as were wanted */
  AUDIT_INTERRUPTED, /* the rest was not read, or could not be */
} audit_ending;

/* Ends the capture: what was open is judged and delivered. No packet may follow. Returns as
 * audit_packet(). */
KORVA_API int audit_end(audit_t audit, audit_ending ending);

typedef enum audit_verdict {
  AUDIT_PASS,
  AUDIT_FAILED,
  AUDIT_INCOMPLETE,
  AUDIT_NOTHING_CHECKED,
  AUDIT_VERDICTS
} audit_verdict;

/* "pass", "fail", "incomplete", "nothing-checked"; null for a number that is none. */
KORVA_API const char *audit_verdict_name(audit_verdict verdict);

typedef struct audit_report {
  size_t size;
  audit_verdict verdict;
  uint64_t packets;
  uint64_t lost_bytes;
  double duration;                /* s, NAN without a clock */
  double bitrate;                 /* bit/s of the whole stream, NAN without a clock */
  int cbr;                        /* 1: constant rate, 0: not, -1: cannot be told */
  double spread;                  /* packets, by which the rate varies */
  uint64_t fails;                 /* findings of severity fail */
  uint64_t findings[AUDIT_KINDS]; /* by kind */
  uint64_t undelivered;           /* of them counted only: too many of their kind */
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
  const uint16_t *program_numbers; /* that list it */
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
  AUDIT_STATE_PASS,
  AUDIT_STATE_FAIL,
  AUDIT_STATE_WARN,
  AUDIT_STATE_OFF,
  AUDIT_STATE_NOT_MEASURABLE,
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

/* Fill a record, of which `size` has to be set, after audit_end(). Programs and their streams come
 * in the order of the PAT and the PMTs, PIDs in rising order, of those with packets; indexes begin
 * at 0. Return 0, or 22 (EINVAL) for a size that is not known or an index that does not exist. */
KORVA_API int audit_get_report(audit_t audit, audit_report *report);
KORVA_API int audit_get_program(audit_t audit, size_t index, audit_program *program);
KORVA_API int audit_get_stream(audit_t audit, size_t program, size_t index, audit_stream *stream);
KORVA_API int audit_get_pid(audit_t audit, size_t index, audit_pid *pid);
KORVA_API int audit_get_indicator(audit_t audit, size_t index, audit_indicator *indicator);

#ifdef __cplusplus
}
#endif

#endif
