#include "tsanalyze/clock.h"

#include "timeop/timeop.h"

void set_now(timespec *ts) {
  set_clk_now(ts, CLOCK_MONOTONIC);
}

time_t wall_seconds() {
  return time(nullptr);
}
