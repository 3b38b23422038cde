// Time stamps and the zone they end with.
#include <csignal>
#include <cstdio>
#include <cstring>

#include "log/log.h"
#include "timeop/timeop.h"

namespace {

// Set during a conversion, whose internal lock a signal handler on this thread could not get.
thread_local volatile sig_atomic_t converting;

thread_local char zone[16]; // " UTC", empty until looked up

// Date and time of one second. Lines come in bursts, so the last one is kept.
struct second_text {
  time_t sec;
  bool gmt;
  char text[40]; // empty: nothing kept
};
thread_local second_text last_second;

bool convert(time_t sec, bool gmt, second_text *out) {
  tm t;
  if ((gmt ? gmtime_r(&sec, &t) : localtime_r(&sec, &t)) == nullptr)
    return false;
  *out = {.sec = sec, .gmt = gmt, .text = {}};
  snprintf(out->text, sizeof out->text, "%04ld-%02d-%02d %02d:%02d:%02d", t.tm_year + 1900L,
           t.tm_mon + 1, t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec);
  return true;
}

// Copies out the text of `sec`, converting it unless it is the one kept. 0, -1, or -35 when busy.
int get_second(time_t sec, bool gmt, second_text *out) {
  if (converting != 0)
    return -35;
  converting = 1;
  const bool kept = last_second.text[0] != '\0' && last_second.sec == sec && last_second.gmt == gmt;
  const bool ok = kept || convert(sec, gmt, &last_second);
  *out = last_second;
  converting = 0;
  if (!ok)
    perror("gmtime_r/localtime_r");
  return ok ? 0 : -1;
}

int mk_raw_timestr(const timespec *ts, char *buf, size_t size) {
  const int n = snprintf(buf, size, "%ld.%06ld", ts->tv_sec, ts->tv_nsec / 1000);
  return n < 0 || static_cast<size_t>(n) >= size ? -1 : n;
}

} // namespace

int mk_timestr(const timespec *ts, uint32_t flags, char *buf, size_t size) {
  if ((flags & f_RAW_TIME) != 0)
    return mk_raw_timestr(ts, buf, size);

  second_text second;
  if (const int rc = get_second(ts->tv_sec, (flags & f_GMT_TIME) != 0, &second); rc != 0)
    return rc;
  const char *suffix = get_timezone(0);
  if (suffix == nullptr)
    suffix = "";
  const int n = (flags & f_FMT_SECONDS) != 0
                    ? snprintf(buf, size, "%s%s", second.text, suffix)
                    : snprintf(buf, size, "%s.%06ld%s", second.text, ts->tv_nsec / 1000, suffix);
  if (n < 0 || static_cast<size_t>(n) > size) {
    fprintf(stderr, "%s: timestamp buffer needs %d bytes, only %ld provided\n", __func__, n,
            static_cast<long>(size));
    return -1;
  }
  return n;
}

const char *get_timezone(int refresh) {
  if (zone[0] != '\0' && refresh == 0)
    return zone;
  last_second.text[0] = '\0'; // converted in the zone as it was
  tzset();
  const time_t now = time(nullptr);
  tm t;
  if (localtime_r(&now, &t) == nullptr) {
    perror("localtime_r");
    return nullptr;
  }
  if (strftime(zone, sizeof zone, " %Z", &t) == 0) {
    perror("strftime");
    strcpy(zone, "#ERR#");
    return nullptr;
  }
  return zone;
}
