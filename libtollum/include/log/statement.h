// One log statement: the level test first, then the line, formatted once.
//
//   LOG_MODULE(0);                        // once, at the top of a source file
//   LOG(g_log, INFO_level, "[%s] ...\n", source);
//
// The arguments of a statement that does not pass are not evaluated.
#pragma once

#include "log/log.h"

// The thresholds that a source file's statements are held against.
struct loglevel_ctx {
  int mod; // index into g_mod_ll
};

#define LOG_MODULE(n)                                                                              \
  static const loglevel_ctx g_llctx {                                                              \
    .mod = (n)                                                                                     \
  }

inline bool log_passes(const loglevel_ctx &ll, int level) {
  return level <= g_mod_ll[ll.mod];
}

// The statement itself, once it has passed; use LOG. What cannot be written whole is reported on
// standard error and written as far as it got; lines of negative levels go to syslog too.
[[gnu::format(printf, 3, 4)]] void log_statement(log_ctx *ctx, int level, const char *format, ...);

#define LOG(ctx, level, ...)                                                                       \
  do {                                                                                             \
    if (log_passes(g_llctx, level))                                                                \
      log_statement(ctx, level, __VA_ARGS__);                                                      \
  } while (0)
