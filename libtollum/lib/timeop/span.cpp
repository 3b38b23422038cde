#include <cstdio>

#include "log/statement.h"
#include "timeop/timeop.h"

LOG_MODULE(0);

time_t get_endofday_utime(time_t t) {
  tm day;
  if (localtime_r(&t, &day) == nullptr) {
    LOG(g_log, ERR_level, "%s: localtime_r() FAILED\n", __func__);
    return -1;
  }
  day.tm_hour = 23;
  day.tm_min = day.tm_sec = 59;
  day.tm_isdst = -1; // the evening may be on the other side of a change of the clocks
  return mktime(&day);
}

int mk_timespan(long seconds, char *buf, size_t size) {
  constexpr long DAY = 86400;
  if (seconds >= DAY) {
    const int n = snprintf(buf, size, "%02ldd ", seconds / DAY);
    if (n < 1 || static_cast<size_t>(n) >= size)
      return -1;
    buf += n;
    size -= static_cast<size_t>(n);
    seconds %= DAY;
  }
  const int n =
      snprintf(buf, size, "%02ldh:%02ldm:%02lds", seconds / 3600, seconds / 60 % 60, seconds % 60);
  return n < 1 || static_cast<size_t>(n) >= size ? -1 : 0;
}
