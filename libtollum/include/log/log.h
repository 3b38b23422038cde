// The two logs: where lines go, what they carry, which of them pass.
//
// The application log (g_log) takes diagnostics and the human form of alerts; the access log
// (g_access_log) takes the terse form of alerts and STAT records. Both are set up once with
// log_default() before the first line; until then nothing is written to them. A line that cannot be
// formatted or written never stops the program.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <string_view>

#include "log/levels.h"

enum {
  LL_MAX_MODULES = 128,
  LL_MAX_SECTIONS = 128,
  LL_STACK_DEPTH = 8,
  LOG_PATHNAME_MAX = 128,
  LOG_GRP_MAX = 32,
  LOG_ERRMSG_MAX = 256,
  MAX_CYCLIC_ROTATIONS = 128,
};

// Time-stamp flags of a log (log_timefmt, mk_timestr).
enum : uint32_t {
  f_REALTIME_TIMER = 0,
  f_MONOTONIC_TIMER = 1,
  f_TIMER_ID = 3, // mask of the clock number
  f_FMT_SECONDS = 16,
  f_NO_TIME = 256,
  f_GMT_TIME = 512,
  f_RAW_TIME = 1024,
  f_BAD_TIME = 1073741824,
};

// Symbolic tag of at most 7 characters that copies and compares as one number; 0 is no tag.
union n64_tag {
  char sym8[8];
  uint64_t num64;
};

// Tag made of the first 7 characters of `text`.
n64_tag mk_n64_tag(std::string_view text);

struct ll_status {
  unsigned mod_ll_set : 1; // module thresholds were set explicitly
  unsigned sec_ll_set : 1; // section thresholds were set explicitly
};

struct rotation_ctx {
  time_t tm[MAX_CYCLIC_ROTATIONS]; // time suffix of each rotated file, indexed cyclically
  ssize_t next_idx;
  size_t max_idx;    // rotated files kept
  size_t max_total;  // bytes; rotate when total_out reaches it, 0 = never
  time_t max_log_tm; // rotate once past, 0 = never
};

struct syslog_cfg {
  bool enabled;
  int option; // of openlog(3)
  int facility;
};

struct lard; // shared-memory ring that a log may mirror into; no ring exists in this library
using lard_t = lard *;

struct log_ctx {
  char name[LOG_PATHNAME_MAX]; // path or command of an opened log, empty for a stream
  bool is_pipe : 1;            // opened with popen(3)
  uint32_t time_format;        // time-stamp flags
  FILE *fp;                    // where lines go; not owned unless opened by name
  FILE *mirror_fp;             // second stream for every line, or null; not owned
  size_t total_out;            // bytes written; updated atomically
  ll_status llst;
  rotation_ctx rota;
  pid_t pid;     // printed in each line when at least 1
  n64_tag group; // printed in each line when non-zero
  lard_t lh;     // ring that the log mirrors into, or null
  syslog_cfg syslg;
};

struct log_module_ctx {
  bool is_ready;
  char app_tag[128];
};

extern log_ctx *const g_log;        // the application log
extern log_ctx *const g_access_log; // the access log
extern log_module_ctx g_logmod;

extern int g_mod_ll[LL_MAX_MODULES];  // threshold of each module; 0 is NORM_level
extern int g_sec_ll[LL_MAX_SECTIONS]; // level of each section
extern volatile int g_sigctx;         // signal number while a handler of this library runs, else 0

// Names the application to the log module; `app_tag` must not be null, 127 characters are kept.
void glog_init(const char *app_tag);

// Directs `ctx` to `stream`, which stays the caller's. For g_log, unless section levels were set
// before, every section gets SECTION_level.
void log_default(log_ctx *ctx, FILE *stream);

// Closes a log that was opened by name (a stream given to log_default is left alone when it is a
// standard one), its syslog connection included.
void log_close(log_ctx *ctx);

// Set the threshold of all modules or of all sections.
void log_set_modules(log_ctx *ctx, int level);
void log_set_sections(log_ctx *ctx, int level);

// Save the module thresholds, and bring them back. One level only: a second push before a pop, and
// a pop without a push, do nothing.
void log_push_mlevels();
void log_pop_mlevels();

void log_set_pid(log_ctx *ctx, pid_t pid);
pid_t log_get_pid(const log_ctx *ctx);
void log_set_group(log_ctx *ctx, n64_tag tag);
n64_tag log_get_group(const log_ctx *ctx);
void log_timefmt(log_ctx *ctx, uint32_t flags);
FILE *log_fp(const log_ctx *ctx);

// Also writes every line to `stream` (null: stop that) and makes that stream line-buffered.
void log_mirror(log_ctx *ctx, FILE *stream);
FILE *log_mirror_fp(const log_ctx *ctx);

// Attaches a ring; returns the previous one.
lard_t log_set_lard(log_ctx *ctx, lard_t handle);
inline bool lard_enabled(const log_ctx *ctx) {
  return ctx->lh != nullptr;
}

// Level in the environment variable `name`: a number, or `dflt` when it is unset or no number.
int read_level_env(const char *name, int dflt);

// Send negative (error-class) levels of `ctx` to syslog(3) as well. `ident` must outlive the log.
void config_syslog(log_ctx *ctx, const char *ident, int option, int facility);
void disable_syslog(log_ctx *ctx);
void glog_enable_syslog(const char *ident);
void glog_disable_syslog();

// syslog facility named "user" (any case) or "local0" to "local7"; -1 for any other text.
int str2fac(const char *text);
// Name of a facility, "#unknown#" when it has none here.
const char *fac2str(int facility);
