// An alert is written twice, each form over its own switch, and counted in any case:
//
//   alert_human(tc, "ALERT ...", ...);
//   alert_terse(tc, "ALERT ...", ...);
//   ++counter;
//
// Both are statements of the calling file's log module; arguments of a form that is switched off
// are not evaluated.
#pragma once

#include "log/statement.h"
#include "tsanalyze/ctx.h"

#define alert_human(tc, ...)                                                                       \
  do {                                                                                             \
    if (!(tc)->cfg.no_rlog)                                                                        \
      LOG(g_log, WARN_level, __VA_ARGS__);                                                         \
  } while (0)

#define alert_terse(tc, ...)                                                                       \
  do {                                                                                             \
    if ((tc)->cfg.access_log_alerts)                                                               \
      LOG(g_access_log, MIN_level, __VA_ARGS__);                                                   \
  } while (0)
