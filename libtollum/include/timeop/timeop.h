// Clocks and time stamps.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>

#include "tassert/tassert.h"

// Reads a clock into `ts`. A clock that cannot be read is reported and aborts the process.
void set_clk_now(timespec *ts, clockid_t clock_id);

// Whole milliseconds, truncated; -1 for the unset value (tv_sec -1).
inline long tms2ms(const timespec *ts) {
  return ts->tv_sec == -1 ? -1 : ts->tv_sec * 1000 + ts->tv_nsec / 1000000;
}

inline bool timespec_less(const timespec &a, const timespec &b) {
  return a.tv_sec != b.tv_sec ? a.tv_sec < b.tv_sec : a.tv_nsec < b.tv_nsec;
}

// a - b, which must not be negative.
inline timespec timespec_sub(const timespec &a, const timespec &b) {
  TASSERT_AS(!timespec_less(a, b), "timespeccmp(delta, pb, >=)");
  timespec delta{a.tv_sec - b.tv_sec, a.tv_nsec - b.tv_nsec};
  if (delta.tv_nsec < 0) {
    delta.tv_sec -= 1;
    delta.tv_nsec += 1000000000;
  }
  return delta;
}

// Formats `ts` with the time-stamp flags of a log: "2024-05-06 07:08:09.123456 UTC" by default,
// without the microseconds with f_FMT_SECONDS, "seconds.microseconds" with f_RAW_TIME. The zone is
// always the local one, with f_GMT_TIME too. Returns the number of characters; -1 when the time
// cannot be converted or needs more than `size` (reported on stderr; a result of exactly `size` is
// returned although its last character was cut); -35 when called while the same thread is inside a
// conversion already.
int mk_timestr(const timespec *ts, uint32_t flags, char *buf, size_t size);

// Local time zone as " UTC", " CEST" ..., looked up once per thread and again when `refresh` is not
// 0. Null on failure; a later call without `refresh` then returns "#ERR#".
const char *get_timezone(int refresh);
