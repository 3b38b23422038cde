#include <strings.h>
#include <syslog.h>

#include <cctype>
#include <cstdlib>
#include <cstring>

#include "log/log.h"

void config_syslog(log_ctx *ctx, const char *ident, int option, int facility) {
  ctx->syslg = {.enabled = true, .option = option, .facility = facility};
  openlog(ident, option, facility);
}

void disable_syslog(log_ctx *ctx) {
  closelog();
  ctx->syslg.enabled = false;
}

int str2fac(const char *text) {
  constexpr int FACILITIES = 8, STEP = LOG_LOCAL1 - LOG_LOCAL0;
  if (strncmp(text, "local", 5) == 0 && isdigit(static_cast<unsigned char>(text[5]))) {
    const long n = strtol(text + 5, nullptr, 10);
    return n < FACILITIES ? LOG_LOCAL0 + static_cast<int>(n) * STEP : -1;
  }
  return strcasecmp(text, "user") == 0 ? LOG_USER : -1;
}
