/* The two logs of the library: where lines go, what they carry, which of them pass.
 *
 *   korva_log_default(korva_log(), stderr);
 *   korva_log_set_group(korva_log(), "PROBE");
 *   korva_log_default(korva_access_log(), stdout);
 *   korva_log_set_pid(korva_access_log(), getpid());
 *
 * The application log takes diagnostics and the human form of alerts, the access log the terse form
 * of alerts and STAT records. A log has no stream at first and stays silent until it gets one. A
 * line is made of
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
#ifndef KORVA_LOG_H
#define KORVA_LOG_H

#include <stdint.h>
#include <stdio.h>
#include <sys/types.h>

/* Marks what the library exports. */
#ifndef KORVA_API
#define KORVA_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Severity of a line; lower is more severe. */
enum {
  KORVA_PANIC = -4,
  KORVA_ERR = -3,
  KORVA_CRIT = -2,
  KORVA_WARN = -1, /* the human form of alerts */
  KORVA_NORM = 0,
  KORVA_INFO = 1,
  KORVA_DEBUG = 2,
  KORVA_TERSE = -127, /* always passes, carries no level: the terse form of alerts, STAT records */
};

/* Time-stamp flags of a log, 0 by default: local time with microseconds. */
enum {
  KORVA_TIME_MONOTONIC = 1, /* time since the machine's start, not of day */
  KORVA_TIME_SECONDS = 16,  /* whole seconds */
  KORVA_TIME_NONE = 256,    /* neither time nor process ID */
  KORVA_TIME_GMT = 512,     /* UTC (the name of the local zone stays) */
  KORVA_TIME_RAW = 1024,    /* "seconds.microseconds" */
};

typedef struct korva_log_t korva_log_t;

/* The application log and the access log; they last as long as the process. */
KORVA_API korva_log_t *korva_log(void);
KORVA_API korva_log_t *korva_access_log(void);

/* Directs `log` to `stream`, which stays the caller's; null: to nothing. */
KORVA_API void korva_log_default(korva_log_t *log, FILE *stream);

/* Also writes every line to `stream` (null: stop that), which stays the caller's and becomes
 * line-buffered. A stream with the descriptor of the log's own gets nothing; streams without one,
 * as those of open_memstream(), count as having the same. */
KORVA_API void korva_log_mirror(korva_log_t *log, FILE *stream);

/* Shows `pid` in each line; below 1: none. */
KORVA_API void korva_log_set_pid(korva_log_t *log, pid_t pid);

/* Shows `group` in each line, at most 7 characters of it. Null or empty: none. */
KORVA_API void korva_log_set_group(korva_log_t *log, const char *group);

/* Sets the time-stamp flags; unknown ones are left out. The local zone is looked up once per
 * thread. */
KORVA_API void korva_log_timefmt(korva_log_t *log, uint32_t flags);

/* Sets the threshold of a module, or of all: a line passes, to both logs, when its level is not
 * above that of its module. KORVA_NORM at start. Module 0 is the analyzer, 2 the system calls, 7
 * the clock arithmetic; there are 128, and no other number changes anything. */
KORVA_API void korva_log_set_module(int module, int level);
KORVA_API void korva_log_set_modules(int level);

/* Sends lines of negative levels (alerts and STAT records among them) to syslog(3) as well, with
 * openlog(`ident`, `option`, `facility`); `ident` must last as long as the log. */
KORVA_API void korva_config_syslog(korva_log_t *log, const char *ident, int option, int facility);

/* Ends that, with closelog(). */
KORVA_API void korva_disable_syslog(korva_log_t *log);

/* syslog facility named "user" (any case) or "local0" to "local7"; -1 for any other text. */
KORVA_API int korva_str2fac(const char *text);

/* Closes the stream of a log, unless it is a standard one or none, and its syslog connection with
 * it; the log is silent then. A failure is told on standard error. A caller that closes the stream
 * itself hands null to korva_log_default() instead. */
KORVA_API void korva_log_close(korva_log_t *log);

#ifdef __cplusplus
}
#endif

#endif
