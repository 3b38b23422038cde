// One line: the prefix and the message into the line buffer, the buffer to the log's streams.
#include <syslog.h>

#include <charconv>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <span>
#include <utility>

#include "log/statement.h"
#include "tassert/tassert.h"
#include "timeop/timeop.h"

namespace {

thread_local char g_outbuf[2048];
thread_local const log_taker *g_taker; // or null

// What is still free of the line buffer, the place of its terminating zero included.
using line_room = std::span<char>;

// Goes past `len` characters and ends the text there.
void advance(line_room &room, size_t len) {
  room = room.subspan(len);
  room[0] = '\0';
}

int flags2clock(uint32_t flags, clockid_t *clock_id) {
  switch (flags & f_TIMER_ID) {
  case f_REALTIME_TIMER:
    *clock_id = CLOCK_REALTIME;
    return 0;
  case f_MONOTONIC_TIMER:
    *clock_id = CLOCK_MONOTONIC;
    return 0;
  default:
    fprintf(stderr, "%s: unsupported timer value: %u\n", __func__, flags & f_TIMER_ID);
    return -1;
  }
}

// The time and one blank.
bool put_time(line_room &room, const log_ctx *ctx) {
  clockid_t clock_id;
  timespec now;
  if (flags2clock(ctx->time_format, &clock_id) != 0)
    return false;
  if (clock_gettime(clock_id, &now) != 0) {
    perror("clock_gettime");
    return false;
  }
  const size_t size = room.size() - 1;
  const int n = mk_timestr(&now, ctx->time_format, room.data(), size);
  if (n < 1 || static_cast<size_t>(n) >= size) {
    fprintf(stderr, "%s: time buffer error (n=%d)\n", "logbuf_prepare", n);
    return false;
  }
  const auto len = static_cast<size_t>(n);
  room[len] = ' ';
  advance(room, len + 1);
  return true;
}

// `text` and two blanks; `what` names it if there is no room.
bool put_field(line_room &room, const char *what, const char *text) {
  const size_t len = strlen(text);
  if (len + 2 >= room.size()) {
    fprintf(stderr, "%s: %s buffer error (n=%d)", "logbuf_prepare", what,
            static_cast<int>(len + 1));
    return false;
  }
  memcpy(room.data(), text, len);
  room[len] = room[len + 1] = ' ';
  advance(room, len + 2);
  return true;
}

bool put_pid(line_room &room, pid_t pid) {
  char text[24] = {};
  std::to_chars(text, text + sizeof text - 1, pid);
  return put_field(room, "pid", text);
}

bool put_prefix(line_room &room, const log_ctx *ctx, int level) {
  if ((ctx->time_format & f_NO_TIME) == 0) {
    if (!put_time(room, ctx) || (ctx->pid >= 1 && !put_pid(room, ctx->pid)))
      return false;
  }
  if (level > MIN_level && !put_field(room, "level", get_level_tag(level)))
    return false;
  if (ctx->group.num64 == 0)
    return true;
  TASSERT(ctx->group.sym8[sizeof ctx->group.sym8 - 1] == '\0');
  return put_field(room, "group", ctx->group.sym8);
}

// What was put into the buffer stays there, as far as it got.
[[gnu::format(printf, 3, 0)]] void put_line(const log_ctx *ctx, int level, const char *format,
                                            va_list args) {
  g_outbuf[0] = '\0';
  line_room room{g_outbuf};
  if (!put_prefix(room, ctx, level))
    return;
  const int n = vsnprintf(room.data(), room.size(), format, args);
  if (n < 1 || static_cast<size_t>(n) >= room.size())
    perror("fprintf/vfprintf");
}

// Both streams are held, so that they get the lines of several threads in one order.
void put_streams(const log_ctx *ctx) {
  const log_hold hold(ctx);
  fputs(g_outbuf, ctx->fp);
  if (ctx->mirror_fp != nullptr && fileno(ctx->mirror_fp) != fileno(ctx->fp))
    fputs(g_outbuf, ctx->mirror_fp);
}

// While it takes a line, the taker is not in force: what it calls has logs of its own.
void hand_over(const log_ctx *ctx, int level, const char *text) {
  const log_taker *taker = g_taker;
  g_taker = nullptr;
  taker->take(taker->opaque, level, ctx->group.sym8, text);
  g_taker = taker;
}

[[gnu::format(printf, 3, 0)]] void take_line(const log_ctx *ctx, int level, const char *format,
                                             va_list args) {
  char text[sizeof g_outbuf];
  const int n = vsnprintf(text, sizeof text, format, args);
  if (n < 0)
    return;
  const size_t len = strlen(text);
  if (len > 0 && text[len - 1] == '\n')
    text[len - 1] = '\0';
  hand_over(ctx, level, text);
}

} // namespace

const log_taker *log_taking::log_take(const log_taker *taker) {
  return std::exchange(g_taker, taker);
}

log_block::log_block(const log_ctx *ctx)
    : out(g_taker ? open_memstream(&text, &size) : ctx->fp), log(ctx) {}

log_block::~log_block() {
  if (!g_taker || !out)
    return;
  fclose(out);
  char *rest = text;
  while (const char *line = strsep(&rest, "\n"))
    if (rest || *line)
      hand_over(log, INFO_level, line);
  free(text);
}

void log_statement(log_ctx *ctx, int level, const char *format, ...) {
  va_list args;
  va_start(args, format);
  if (g_taker) {
    take_line(ctx, level, format, args);
    va_end(args);
    return;
  }
  put_line(ctx, level, format, args);
  va_end(args);
  if (g_outbuf[0] == '\0' || ctx->fp == nullptr)
    return;
  put_streams(ctx);
  if (level < 0 && ctx->syslg.enabled)
    syslog(ctx->syslg.facility | get_syslog_pri(level), "%s", g_outbuf);
}
