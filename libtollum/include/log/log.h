// The two logs: the application log (g_log) takes diagnostics and the human form of alerts, the
// access log (g_access_log) the terse form of alerts and STAT records. A log without a stream is
// silent. libkorva/include/korva/log.h tells more: it is the manual of these operations, which
// other programs reach under names of the library's own.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <string_view>

#include "log/levels.h"

// Severity of a line; lower is more severe.
enum log_level {
  PANIC_level = -4,
  ERR_level = -3,
  CRIT_level = -2,
  WARN_level = -1, // the human form of alerts
  NORM_level = 0,
  INFO_level = 1,
  DEBUG_level = 2,
  SECTION_level = 64, // above all that is logged
  MIN_level = -127,   // always passes, carries no level: the terse form of alerts, STAT records
};

// Time-stamp flags of a log, 0 by default: local time with microseconds.
enum {
  f_REALTIME_TIMER = 0,    // time of day ...
  f_MONOTONIC_TIMER = 1,   // ... or time since the machine's start
  f_TIMER_ID = 3,          // mask of the two; 2 and 3 are no clocks and cost the line its text
  f_FMT_SECONDS = 16,      // whole seconds
  f_NO_TIME = 256,         // neither time nor process ID
  f_GMT_TIME = 512,        // UTC (the name of the local zone stays)
  f_RAW_TIME = 1024,       // "seconds.microseconds"
  f_BAD_TIME = 1073741824, // an unknown word in settings; not to be set
};

// Group of a log, shown in its lines: at most 7 characters. The last byte must be 0, or the first
// line ends the process through an assertion. All zeros: no group.
union n64_tag {
  char sym8[8];
  uint64_t num64;
};

// Tag made of the first 7 characters of `text`.
n64_tag mk_n64_tag(std::string_view text);

struct syslog_cfg {
  bool enabled;
  int option; // of openlog(3)
  int facility;
};

struct log_ctx {
  uint32_t time_format; // time-stamp flags
  FILE *fp;             // where lines go; not owned until log_close() is asked to close it
  FILE *mirror_fp;      // second stream for every line, or null; not owned
  pid_t pid;            // printed in each line when at least 1
  n64_tag group;        // printed in each line when non-zero
  syslog_cfg syslg;
};

extern log_ctx *const g_log;
extern log_ctx *const g_access_log;

// Thresholds by module: 0 is the analyzer, 2 the system calls, 7 the clock arithmetic.
enum { LL_MAX_MODULES = 128 };
extern int g_mod_ll[LL_MAX_MODULES];

// Sets the threshold of all modules, which both logs are held against, whichever `ctx` is.
void log_set_modules(log_ctx *ctx, int level);

void log_default(log_ctx *ctx, FILE *stream);
void log_mirror(log_ctx *ctx, FILE *stream);
void log_set_pid(log_ctx *ctx, pid_t pid);
void log_set_group(log_ctx *ctx, n64_tag tag);
void log_timefmt(log_ctx *ctx, uint32_t flags);
void log_close(log_ctx *ctx);

// Sends lines of negative levels to syslog(3) as well; `ident` must last as long as the log.
void config_syslog(log_ctx *ctx, const char *ident, int option, int facility);
void disable_syslog(log_ctx *ctx);

// syslog facility named "user" (any case) or "local0" to "local7"; -1 for any other text.
int str2fac(const char *text);

FILE *log_fp(const log_ctx *ctx);

// Takes lines in place of the streams of both logs and of syslog: level and group as in a line, the
// text without prefix and line end.
struct log_taker {
  void (*take)(void *opaque, int level, const char *group, const char *text);
  void *opaque;
};

// Puts a taker in force for the calling thread; null: leaves it as it is.
class log_taking {
public:
  explicit log_taking(const log_taker *taker) : is_on(taker != nullptr) {
    if (is_on) [[unlikely]]
      before = log_take(taker);
  }
  ~log_taking() {
    if (is_on) [[unlikely]]
      log_take(before);
  }
  log_taking(const log_taking &) = delete;
  log_taking &operator=(const log_taking &) = delete;

private:
  // Puts `taker` (or null: none) in force and returns what was.
  static const log_taker *log_take(const log_taker *taker);

  bool is_on;
  const log_taker *before = nullptr;
};

// Where lines of a block go that are printed, not logged: the stream of a log or, lines of
// INFO_level then, the taker that is in force.
class log_block {
public:
  explicit log_block(const log_ctx *ctx);
  ~log_block();
  log_block(const log_block &) = delete;
  log_block &operator=(const log_block &) = delete;

  FILE *out; // null: to nothing

private:
  const log_ctx *log;
  char *text = nullptr; // of the taker
  size_t size = 0;
};

// Keeps the stream of a log and its mirror for the calling thread, for a line or a block of lines.
// They are always locked in one order, so that two logs may mirror into each other's streams.
class log_hold {
public:
  explicit log_hold(const log_ctx *ctx);
  ~log_hold();
  log_hold(const log_hold &) = delete;
  log_hold &operator=(const log_hold &) = delete;

private:
  FILE *first, *second; // or null
};
