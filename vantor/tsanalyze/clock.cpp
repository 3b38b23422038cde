#include "tsanalyze/clock.h"

bool set_now(timespec *ts) {
  return clock_gettime(CLOCK_MONOTONIC, ts) == 0;
}

time_t wall_seconds() {
  return time(nullptr);
}
