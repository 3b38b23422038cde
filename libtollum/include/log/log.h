// What a log is made of, and what the suite's own programs need beside the operations of api.h.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <string_view>

#include "log/api.h"
#include "log/levels.h"

enum {
  LL_MAX_SECTIONS = 128,
  LL_STACK_DEPTH = 8,
  LOG_PATHNAME_MAX = 128,
  LOG_GRP_MAX = 32,
  LOG_ERRMSG_MAX = 256,
  MAX_CYCLIC_ROTATIONS = 128,
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

extern log_module_ctx g_logmod;

extern int g_sec_ll[LL_MAX_SECTIONS]; // level of each section
extern volatile int g_sigctx;         // signal number while a handler of this library runs, else 0

// Names the application to the log module; `app_tag` must not be null, 127 characters are kept.
void glog_init(const char *app_tag);

// Sets the level of all sections. log_default() of g_log does so with SECTION_level, unless they
// were set before.
void log_set_sections(log_ctx *ctx, int level);

// Save the module thresholds, and bring them back. One level only: a second push before a pop, and
// a pop without a push, do nothing.
void log_push_mlevels();
void log_pop_mlevels();

pid_t log_get_pid(const log_ctx *ctx);
n64_tag log_get_group(const log_ctx *ctx);
FILE *log_fp(const log_ctx *ctx);
FILE *log_mirror_fp(const log_ctx *ctx);

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

// Attaches a ring; returns the previous one.
lard_t log_set_lard(log_ctx *ctx, lard_t handle);
inline bool lard_enabled(const log_ctx *ctx) {
  return ctx->lh != nullptr;
}

// Level in the environment variable `name`: a number, or `dflt` when it is unset or no number.
int read_level_env(const char *name, int dflt);

// Ends what config_syslog() began; the pair of them for g_log.
void disable_syslog(log_ctx *ctx);
void glog_enable_syslog(const char *ident);
void glog_disable_syslog();

// Name of a facility, "#unknown#" when it has none here.
const char *fac2str(int facility);
