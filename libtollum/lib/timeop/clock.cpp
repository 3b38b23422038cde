#include <cstdio>
#include <cstdlib>

#include "timeop/timeop.h"

void set_clk_now(timespec *ts, clockid_t clock_id) {
  if (clock_gettime(clock_id, ts) != 0) {
    perror("clock_gettime");
    abort();
  }
}
