#include <strings.h>
#include <syslog.h>

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "log/log.h"

namespace {

// By facility number; facilities count in steps of 8.
constexpr const char *local_names[] = {"local0", "local1", "local2", "local3",
                                       "local4", "local5", "local6", "local7"};
constexpr int FAC_STEP = LOG_LOCAL1 - LOG_LOCAL0;

} // namespace

void config_syslog(log_ctx *ctx, const char *ident, int option, int facility) {
  ctx->syslg = {.enabled = true, .option = option, .facility = facility};
  openlog(ident, option, facility);
}

void disable_syslog(log_ctx *ctx) {
  closelog();
  ctx->syslg.enabled = false;
}

void glog_enable_syslog(const char *ident) {
  config_syslog(g_log, ident, LOG_PID | LOG_CONS, LOG_LOCAL0);
}

void glog_disable_syslog() {
  disable_syslog(g_log);
}

int str2fac(const char *text) {
  if (strncmp(text, "local", 5) == 0 && isdigit(static_cast<unsigned char>(text[5]))) {
    const long n = strtol(text + 5, nullptr, 10);
    return n < std::ssize(local_names) ? LOG_LOCAL0 + static_cast<int>(n) * FAC_STEP : -1;
  }
  return strcasecmp(text, "user") == 0 ? LOG_USER : -1;
}

const char *fac2str(int facility) {
  if (facility == LOG_USER)
    return "user";
  for (size_t i = 0; i < std::size(local_names); ++i)
    if (facility == LOG_LOCAL0 + static_cast<int>(i) * FAC_STEP)
      return local_names[i];
  return "#unknown#";
}
