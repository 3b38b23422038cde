#include "timeop/timeop.h"

#include <climits>
#include <cstdlib>
#include <string>

#include <dlfcn.h>

#include <gtest/gtest.h>

#include "log/log.h"

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

namespace {

constexpr time_t MAY_6 = 1714979289; // 2024-05-06 07:08:09 UTC

struct timeop : testing::Test {
  static void set_zone(const char *text) {
    const char *old = getenv("TZ");
    if (old && std::string(old) == text)
      return;
    setenv("TZ", text, 1);
    get_timezone(1);
  }
  ~timeop() override { set_zone("UTC"); }
};

bool nest_in_conversion;
int nested_result;

} // namespace

// In the C library's place: a handler that logs while a line is being stamped.
extern "C" tm *gmtime_r(const time_t *t, tm *out) noexcept {
  if (nest_in_conversion) {
    char buf[64];
    const timespec ts{1, 0};
    nested_result = mk_timestr(&ts, 0, buf, sizeof buf);
  }
  const auto real = reinterpret_cast<decltype(&gmtime_r)>(dlsym(RTLD_NEXT, "gmtime_r"));
  return real(t, out);
}

TEST_F(timeop, time_stamps) {
  const char *too_large = "gmtime_r/localtime_r: Value too large for defined data type\n";
  const struct {
    const char *zone;
    uint32_t flags;
    timespec time;
    const char *expected; // null: refused
    size_t size = 64;
    const char *report = "";
  } cases[] = {
      {"UTC", 0, {MAY_6, 123456000}, "2024-05-06 07:08:09.123456 UTC"},
      {"UTC", f_FMT_SECONDS, {MAY_6, 999999999}, "2024-05-06 07:08:09 UTC"},
      {"UTC", 0, {MAY_6, 1999}, "2024-05-06 07:08:09.000001 UTC"},
      // The same second through every combination, as none may hand its text to the next.
      {"XYZ-2", 0, {MAY_6, 0}, "2024-05-06 09:08:09.000000 XYZ"},
      {"XYZ-2", f_GMT_TIME, {MAY_6, 0}, "2024-05-06 07:08:09.000000 XYZ"},
      {"ABCD5", f_GMT_TIME, {MAY_6, 0}, "2024-05-06 07:08:09.000000 ABCD"},
      {"ABCD5", 0, {MAY_6, 0}, "2024-05-06 02:08:09.000000 ABCD"},
      {"ABCD5", 0, {MAY_6 + 1, 0}, "2024-05-06 02:08:10.000000 ABCD"},
      {"UTC", f_FMT_SECONDS, {67768036191676799, 0}, "2147485547-12-31 23:59:59 UTC"},
      {"UTC", 0, {LONG_MAX, 0}, nullptr, 60, too_large},
      // The last character is cut where it just fits.
      {"UTC", 0, {MAY_6, 0}, "2024-05-06 07:08:09.000000 UT", 30},
      {"UTC",
       0,
       {MAY_6, 0},
       nullptr,
       29,
       "mk_timestr: timestamp buffer needs 30 bytes, only 29 provided\n"},
      {"UTC", f_RAW_TIME, {5, 1999999}, "5.001999", 9},
      {"UTC", f_RAW_TIME, {5, 0}, nullptr, 8},
  };
  for (const auto &c : cases) {
    set_zone(c.zone);
    char buf[64] = "";
    CaptureStderr();
    const int n = mk_timestr(&c.time, c.flags, buf, c.size);
    EXPECT_EQ(GetCapturedStderr(), c.report);
    EXPECT_EQ(n, c.expected ? strlen(c.expected) + (c.size == 30) : -1);
    EXPECT_TRUE(!c.expected || std::string(buf) == c.expected) << buf;
  }
}

TEST_F(timeop, zone_is_kept_until_refreshed) {
  set_zone("XYZ-2");
  setenv("TZ", "ABC5", 1);
  EXPECT_STREQ(get_timezone(0), " XYZ");
  EXPECT_STREQ(get_timezone(1), " ABC");
  setenv("TZ", "ABCDEFGHIJKLMNOPQRST0", 1);
  CaptureStderr();
  EXPECT_EQ(get_timezone(1), nullptr);
  EXPECT_TRUE(GetCapturedStderr().starts_with("strftime: "));
  EXPECT_STREQ(get_timezone(0), "#ERR#");
}

TEST_F(timeop, nested_time_stamp_is_refused) {
  char buf[64];
  const timespec ts{MAY_6 + 100, 0};
  set_zone("UTC");
  nest_in_conversion = true;
  EXPECT_EQ(mk_timestr(&ts, f_GMT_TIME, buf, sizeof buf), 30);
  nest_in_conversion = false;
  EXPECT_EQ(nested_result, -35);
  EXPECT_STREQ(buf, "2024-05-06 07:09:49.000000 UTC");
}

TEST_F(timeop, end_of_day) {
  constexpr char central_europe[] = "CET-1CEST,M3.5.0,M10.5.0/3"; // the clocks change on these days
  const struct {
    const char *zone;
    time_t time, expected;
  } cases[] = {{"UTC", 0, 86399},
               {"UTC", 86399, 86399},
               {"XYZ-2", 80000, 165599},
               {central_europe, 1711841400, 1711922399},
               {central_europe, 1729981800, 1730069999},
               {"UTC", LONG_MAX, -1}};
  log_default(g_log, nullptr);
  for (const auto &c : cases) {
    set_zone(c.zone);
    EXPECT_EQ(get_endofday_utime(c.time), c.expected) << c.zone << " " << c.time;
  }
}

TEST_F(timeop, spans) {
  const struct {
    long seconds;
    size_t size;
    const char *text; // null: refused
  } cases[] = {{86399, 64, "23h:59m:59s"},
               {86400, 64, "01d 00h:00m:00s"},
               {90061, 16, "01d 01h:01m:01s"},
               {90061, 15, nullptr}};
  for (const auto &c : cases) {
    char buf[64];
    EXPECT_EQ(mk_timespan(c.seconds, buf, c.size), c.text ? 0 : -1) << c.seconds;
    EXPECT_TRUE(!c.text || std::string(buf) == c.text) << buf;
  }
}

TEST_F(timeop, arithmetic) {
  const timespec unset{-1, 0}, early{10, 900'000'000}, late{12, 100'999'999};
  EXPECT_EQ(tms2ms(&unset), -1);
  EXPECT_EQ(tms2ms(&late), 12100);
  const timespec delta = timespec_sub(late, early);
  EXPECT_EQ(tms2ms(&delta), 1200);
  EXPECT_DEATH(timespec_sub(early, late),
               "Assertion `timespeccmp\\(delta, pb, >=\\)' failed\\.\n$");
  timespec ts;
  EXPECT_DEATH(set_clk_now(&ts, 12345), "^clock_gettime: Invalid argument\n$");
}
