#include "tsanalyze/ending.h"

#include <cerrno>
#include <cstring>

#include "log/statement.h"
#include "timeop/timeop.h"
#include "tsanalyze/clock.h"
#include "tsanalyze/ptag.h"

LOG_MODULE(0);

void end_run(tsan_ctx *tc, tsan_result code) {
  if (tc->ended != 0)
    return;
  tc->ended = code;
  tc->stop = &tc->ended;
}

bool refuse_table(tsan_ctx *tc, const tassert_failure &failure) {
  if (!tc->survives)
    tassert_fail(failure);
  LOG(g_log, ERR_level, "[%s] ended by a table: `%s' does not hold at %s\n", tc->cfg.source,
      failure.expr, ptag(tc));
  end_run(tc, TSAN_BAD_TABLE);
  return false;
}

timespec now_of(tsan_ctx *tc) {
  timespec now = {};
  if (set_now(&now))
    return now;
  if (!tc->survives) {
    set_clk_now(&now, CLOCK_MONOTONIC); // fails again, and tells so
    return now;
  }
  LOG(g_log, ERR_level, "[%s] ended: the clock cannot be read: %s\n", tc->cfg.source,
      strerror(errno));
  end_run(tc, TSAN_NO_CLOCK);
  return {};
}

const char *tsan_result_name(int result) {
  switch (result) {
  case TSAN_OK:
    return "OK";
  case TSAN_NO_SYNC:
    return "NO-SYNC";
  case TSAN_STOPPED:
    return "STOPPED";
  case TSAN_NO_CLOCK:
    return "NO-CLOCK";
  case TSAN_GAVE_UP:
    return "GAVE-UP";
  case TSAN_BAD_TABLE:
    return "BAD-TABLE";
  default:
    return nullptr;
  }
}
