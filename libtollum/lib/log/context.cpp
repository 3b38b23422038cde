// The two logs, their settings and the threshold tables.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <functional>

#include "log/log.h"

namespace {

log_ctx app_log;
log_ctx access_log;

bool is_standard(const FILE *fp) {
  return fp == stdin || fp == stdout || fp == stderr;
}

} // namespace

log_ctx *const g_log = &app_log;
log_ctx *const g_access_log = &access_log;

int g_mod_ll[LL_MAX_MODULES];

n64_tag mk_n64_tag(std::string_view text) {
  n64_tag tag{};
  text.copy(tag.sym8, sizeof tag.sym8 - 1);
  return tag;
}

void log_default(log_ctx *ctx, FILE *stream) {
  ctx->fp = stream;
}

void log_close(log_ctx *ctx) {
  if (ctx->fp == nullptr || is_standard(ctx->fp))
    return;
  if (fclose(ctx->fp) != 0)
    fprintf(stderr, "%s: fclose error(%d) for the application log: %s\n", __func__, errno,
            strerror(errno));
  ctx->fp = nullptr;
  if (ctx->syslg.enabled)
    disable_syslog(ctx);
}

void log_set_modules(log_ctx *, int level) {
  std::ranges::fill(g_mod_ll, level);
}

void log_set_pid(log_ctx *ctx, pid_t pid) {
  ctx->pid = pid;
}

void log_set_group(log_ctx *ctx, n64_tag tag) {
  ctx->group = tag;
}

void log_timefmt(log_ctx *ctx, uint32_t flags) {
  ctx->time_format = flags;
}

FILE *log_fp(const log_ctx *ctx) {
  return ctx->fp;
}

void log_mirror(log_ctx *ctx, FILE *stream) {
  ctx->mirror_fp = stream;
  if (stream != nullptr)
    setlinebuf(stream);
}

log_hold::log_hold(const log_ctx *ctx)
    : first(std::min(ctx->fp, ctx->mirror_fp, std::less<>())),
      second(std::max(ctx->fp, ctx->mirror_fp, std::less<>())) {
  for (FILE *stream : {first, second})
    if (stream != nullptr)
      flockfile(stream);
}

log_hold::~log_hold() {
  for (FILE *stream : {second, first})
    if (stream != nullptr)
      funlockfile(stream);
}
