/* The two logs of the library: where lines go, what they carry, which of them pass.
 *
 *   n64_tag group = {.sym8 = "PROBE"};
 *   log_default(g_log, stderr);
 *   log_set_group(g_log, group);
 *   log_default(g_access_log, stdout);
 *   log_set_pid(g_access_log, getpid());
 *
 * The application log (g_log) takes diagnostics and the human form of alerts, the access log
 * (g_access_log) the terse form of alerts and STAT records. A log has no stream at first and stays
 * silent until it gets one. A line is made of
 *
 *   2024-05-06 07:08:09.123456 UTC (WRN)  PROBE  text        (time, level, group, text)
 *   2024-05-06 07:08:09.123456 UTC 4711  text                (time, process ID, text; no level)
 *
 * with the process ID in front of the level where both are there; a line holds at most 2,047 bytes.
 * A line that cannot be formatted or written never stops the program; what went wrong is told on
 * standard error.
 *
 * Both logs are process-wide. Set them up before the first analyzer runs in a second thread, and
 * change nothing while one runs: the operations here do not wait for each other. Lines may come
 * from any number of threads: each is written whole, in the same order to a stream and its mirror,
 * with one exception, the human form of CC-MLR, which ends without a line end.
 *
 * No pointer may be null where nothing is said of it. */
#ifndef TOLLUM_LOG_API_H
#define TOLLUM_LOG_API_H

#include <stdint.h>
#include <stdio.h>
#include <sys/types.h>

/* Marks what the shared library exports. */
#ifndef KORVA_API
#define KORVA_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Severity of a line; lower is more severe. */
enum log_level {
  PANIC_level = -4,
  ERR_level = -3,
  CRIT_level = -2,
  WARN_level = -1, /* the human form of alerts */
  NORM_level = 0,
  INFO_level = 1,
  DEBUG_level = 2,
  SECTION_level = 64, /* above all that the library logs */
  MIN_level = -127,   /* always passes, carries no level: the terse form of alerts, STAT records */
};

/* Time-stamp flags of a log, 0 by default: local time with microseconds. */
enum {
  f_REALTIME_TIMER = 0,    /* time of day ... */
  f_MONOTONIC_TIMER = 1,   /* ... or time since the machine's start */
  f_TIMER_ID = 3,          /* mask of the two; 2 and 3 are no clocks and cost the line its text */
  f_FMT_SECONDS = 16,      /* whole seconds */
  f_NO_TIME = 256,         /* neither time nor process ID */
  f_GMT_TIME = 512,        /* UTC (the name of the local zone stays) */
  f_RAW_TIME = 1024,       /* "seconds.microseconds" */
  f_BAD_TIME = 1073741824, /* an unknown word in settings; not to be set */
};

/* Group of a log, shown in its lines: at most 7 characters. The last byte must be 0, or the first
 * line ends the process through an assertion. All zeros: no group. */
typedef union n64_tag {
  char sym8[8];
  uint64_t num64;
} n64_tag;

struct log_ctx;
enum { LL_MAX_MODULES = 128 };

/* The application log and the access log. */
KORVA_API extern struct log_ctx *const g_log;
KORVA_API extern struct log_ctx *const g_access_log;

/* Thresholds: a line passes when its level is not above that of its module. 0 (NORM_level) at
 * start. Module 0 is the analyzer, 2 the system calls, 7 the clock arithmetic. */
KORVA_API extern int g_mod_ll[LL_MAX_MODULES];

/* Sets the threshold of all modules, which both logs are held against, whichever `ctx` is. */
KORVA_API void log_set_modules(struct log_ctx *ctx, int level);

/* Directs `ctx` to `stream`, which stays the caller's; null: to nothing. */
KORVA_API void log_default(struct log_ctx *ctx, FILE *stream);

/* Also writes every line to `stream` (null: stop that), which stays the caller's and becomes
 * line-buffered. A stream with the descriptor of the log's own gets nothing; streams without one,
 * as those of open_memstream(), count as having the same. */
KORVA_API void log_mirror(struct log_ctx *ctx, FILE *stream);

/* Shows `pid` in each line; below 1: none. */
KORVA_API void log_set_pid(struct log_ctx *ctx, pid_t pid);

/* Shows `tag` in each line. */
KORVA_API void log_set_group(struct log_ctx *ctx, n64_tag tag);

/* Sets the time-stamp flags. The local zone is looked up once per thread. */
KORVA_API void log_timefmt(struct log_ctx *ctx, uint32_t flags);

/* Sends lines of negative levels (alerts and STAT records among them) to syslog(3) as well, with
 * openlog(`ident`, `option`, `facility`); `ident` must last as long as the log. */
KORVA_API void config_syslog(struct log_ctx *ctx, const char *ident, int option, int facility);

/* syslog facility named "user" (any case) or "local0" to "local7"; -1 for any other text. */
KORVA_API int str2fac(const char *text);

/* Closes the stream of a log, unless it is a standard one or none, and its syslog connection with
 * it; the log is silent then. A failure is told on standard error. A caller that closes the stream
 * itself hands null to log_default() instead. */
KORVA_API void log_close(struct log_ctx *ctx);

#ifdef __cplusplus
}
#endif

#endif
