#include "tsanalyze/tdiff.h"

#include "timeop/timeop.h"
#include "tsanalyze/clock.h"

static timespec given_or_now(const timespec *ts) {
  timespec now;
  if (!ts)
    set_now(&now);
  return ts ? *ts : now;
}

void tspec_diff(const timespec *a, const timespec *b, timespec *out) {
  const timespec ta = given_or_now(a);
  const timespec tb = given_or_now(b);
  *out = timespec_less(ta, tb) ? timespec_sub(tb, ta) : timespec_sub(ta, tb);
}

long diff_ms(const timespec *a, const timespec *b) {
  timespec diff;
  tspec_diff(a, b, &diff);
  return tms2ms(&diff);
}
