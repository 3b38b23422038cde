// The two logs, their settings and the threshold tables.
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <utility>

#include "log/log.h"
#include "tassert/tassert.h"

namespace {

log_ctx app_log;
log_ctx access_log;

int g_saved_ll[LL_MAX_MODULES]; // what log_push_mlevels() put aside
bool mlevels_pushed;

bool is_standard(const FILE *fp) {
  return fp == stdin || fp == stdout || fp == stderr;
}

} // namespace

log_ctx *const g_log = &app_log;
log_ctx *const g_access_log = &access_log;
log_module_ctx g_logmod;

int g_mod_ll[LL_MAX_MODULES];
int g_sec_ll[LL_MAX_SECTIONS];
volatile int g_sigctx;

n64_tag mk_n64_tag(std::string_view text) {
  n64_tag tag{};
  text.copy(tag.sym8, sizeof tag.sym8 - 1);
  return tag;
}

void glog_init(const char *app_tag) {
  TASSERT(app_tag != nullptr);
  g_logmod = {};
  std::string_view(app_tag).copy(g_logmod.app_tag, sizeof g_logmod.app_tag - 1);
  g_logmod.is_ready = true;
}

void log_default(log_ctx *ctx, FILE *stream) {
  ctx->fp = stream;
  if (ctx == g_log && !ctx->llst.sec_ll_set)
    log_set_sections(ctx, SECTION_level);
}

void log_close(log_ctx *ctx) {
  if (ctx->fp == nullptr || is_standard(ctx->fp))
    return;
  const int rc = ctx->is_pipe ? pclose(ctx->fp) : fclose(ctx->fp);
  // Whoever ignores SIGCHLD has had the command's status collected already.
  if (rc == -1 && !(ctx->is_pipe && errno == ECHILD))
    fprintf(stderr, "%s: %s error(%d) for the application log: %s\n", "log_close",
            ctx->is_pipe ? "pclose" : "fclose", errno, strerror(errno));
  ctx->fp = nullptr;
  ctx->lh = nullptr;
  if (ctx->syslg.enabled)
    disable_syslog(ctx);
}

void log_set_modules(log_ctx *ctx, int level) {
  std::ranges::fill(g_mod_ll, level);
  ctx->llst.mod_ll_set = 1;
}

void log_set_sections(log_ctx *ctx, int level) {
  std::ranges::fill(g_sec_ll, level);
  ctx->llst.sec_ll_set = 1;
}

void log_push_mlevels() {
  if (mlevels_pushed)
    return;
  std::ranges::copy(g_mod_ll, g_saved_ll);
  mlevels_pushed = true;
}

void log_pop_mlevels() {
  if (!mlevels_pushed)
    return;
  std::ranges::copy(g_saved_ll, g_mod_ll);
  mlevels_pushed = false;
}

void log_set_pid(log_ctx *ctx, pid_t pid) {
  ctx->pid = pid;
}

pid_t log_get_pid(const log_ctx *ctx) {
  return ctx->pid;
}

void log_set_group(log_ctx *ctx, n64_tag tag) {
  ctx->group = tag;
}

n64_tag log_get_group(const log_ctx *ctx) {
  return ctx->group;
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

FILE *log_mirror_fp(const log_ctx *ctx) {
  return ctx->mirror_fp;
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

lard_t log_set_lard(log_ctx *ctx, lard_t handle) {
  return std::exchange(ctx->lh, handle);
}

int read_level_env(const char *name, int dflt) {
  const char *text = getenv(name);
  if (text == nullptr)
    return dflt;
  const int level = atoi(text);
  return level != 0 || strcmp(text, "0") == 0 ? level : dflt;
}
