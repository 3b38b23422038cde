// The logs, under the names by which other programs reach them.
#include "korva/log.h"

#include "log/log.h"

namespace {

// Same numbers, of types that are not to be compared.
constexpr bool same(int inside, int outside) {
  return inside == outside;
}
static_assert(same(PANIC_level, KORVA_PANIC) && same(ERR_level, KORVA_ERR) &&
              same(CRIT_level, KORVA_CRIT) && same(WARN_level, KORVA_WARN) &&
              same(NORM_level, KORVA_NORM) && same(INFO_level, KORVA_INFO) &&
              same(DEBUG_level, KORVA_DEBUG) && same(MIN_level, KORVA_TERSE));

constexpr uint32_t TIME_FLAGS =
    KORVA_TIME_MONOTONIC | KORVA_TIME_SECONDS | KORVA_TIME_NONE | KORVA_TIME_GMT | KORVA_TIME_RAW;
static_assert(TIME_FLAGS ==
              (f_MONOTONIC_TIMER | f_FMT_SECONDS | f_NO_TIME | f_GMT_TIME | f_RAW_TIME));

log_ctx *inside(korva_log_t *log) {
  return reinterpret_cast<log_ctx *>(log);
}

korva_log_t *outside(log_ctx *log) {
  return reinterpret_cast<korva_log_t *>(log);
}

} // namespace

korva_log_t *korva_log() {
  return outside(g_log);
}

korva_log_t *korva_access_log() {
  return outside(g_access_log);
}

void korva_log_default(korva_log_t *log, FILE *stream) {
  log_default(inside(log), stream);
}

void korva_log_mirror(korva_log_t *log, FILE *stream) {
  log_mirror(inside(log), stream);
}

void korva_log_set_pid(korva_log_t *log, pid_t pid) {
  log_set_pid(inside(log), pid);
}

void korva_log_set_group(korva_log_t *log, const char *group) {
  log_set_group(inside(log), mk_n64_tag(group ? group : ""));
}

void korva_log_timefmt(korva_log_t *log, uint32_t flags) {
  log_timefmt(inside(log), flags & TIME_FLAGS);
}

void korva_log_set_module(int module, int level) {
  if (module >= 0 && module < LL_MAX_MODULES)
    g_mod_ll[module] = level;
}

void korva_log_set_modules(int level) {
  log_set_modules(g_log, level);
}

void korva_config_syslog(korva_log_t *log, const char *ident, int option, int facility) {
  config_syslog(inside(log), ident, option, facility);
}

void korva_disable_syslog(korva_log_t *log) {
  disable_syslog(inside(log));
}

int korva_str2fac(const char *text) {
  return str2fac(text);
}

void korva_log_close(korva_log_t *log) {
  log_close(inside(log));
}
