#include "tsanalyze/tdiff.h"

#include "timeop/timeop.h"

void tspec_diff(const timespec *a, const timespec *b, timespec *out) {
  *out = timespec_less(*a, *b) ? timespec_sub(*b, *a) : timespec_sub(*a, *b);
}

long diff_ms(const timespec *a, const timespec *b) {
  timespec diff;
  tspec_diff(a, b, &diff);
  return tms2ms(&diff);
}
