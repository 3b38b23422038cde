// One log statement: the level test first, then the line, formatted once.
//
//   LOG_MODULE(0);                        // once, at the top of a source file
//   LOG(g_log, INFO_level, "[%s] ...\n", source);
//
// The arguments of a statement that does not pass are not evaluated.
#pragma once

#include "log/log.h"

// Which thresholds a source file's statements are held against.
struct loglevel_ctx {
  int mod;         // index into g_mod_ll
  int sec = -1;    // index into g_sec_ll, -1 = no section
  int sec_sp = -1; // section stack, -1 = empty
  int sec_stack[LL_STACK_DEPTH] = {};
};

#define LOG_MODULE(n)                                                                              \
  static const loglevel_ctx g_llctx {                                                              \
    .mod = (n)                                                                                     \
  }

// Inside a section the section's level is compared, else the statement's own.
inline bool log_passes(const loglevel_ctx &ll, int level) {
  return (ll.sec >= 0 ? g_sec_ll[ll.sec] : level) <= g_mod_ll[ll.mod];
}

// The line buffer (one per thread). logbuf_prepare() puts time stamp, process id, level tag, group
// and message into it and returns the message's length, or -1 after a report on standard error;
// what was written by then stays in the buffer. log_flush() writes the buffer, when not empty, to
// the log's stream, its mirror and, for negative levels, syslog. log_lard() copies it to the ring.
void logbuf_reset();
bool logbuf_empty();
[[gnu::format(printf, 3, 4)]] int logbuf_prepare(const log_ctx *ctx, int level, const char *format,
                                                 ...);
void log_flush(log_ctx *ctx, int level);
void log_lard(log_ctx *ctx, int level);

// The statement itself; use LOG.
[[gnu::format(printf, 4, 5)]] void log_statement(const loglevel_ctx &ll, log_ctx *ctx, int level,
                                                 const char *format, ...);

#define LOG(ctx, level, ...)                                                                       \
  do {                                                                                             \
    if (log_passes(g_llctx, level) || lard_enabled(ctx))                                           \
      log_statement(g_llctx, ctx, level, __VA_ARGS__);                                             \
  } while (0)
