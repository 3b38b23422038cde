#include "timeop/timeop.h"

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <climits>
#include <cstdlib>
#include <string>

#include "log/log.h"

namespace {

constexpr time_t MAY_6 = 1714979289; // 2024-05-06 07:08:09 UTC

void set_zone(const char *text) {
  setenv("TZ", text, 1);
  get_timezone(1);
}

struct timeop : testing::Test {
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
  const struct {
    const char *zone;
    uint32_t flags;
    timespec time;
    const char *expected;
  } cases[] = {{"UTC", 0, {MAY_6, 123456000}, "2024-05-06 07:08:09.123456 UTC"},
               {"UTC", f_FMT_SECONDS, {MAY_6, 999999999}, "2024-05-06 07:08:09 UTC"},
               {"UTC", 0, {MAY_6, 1999}, "2024-05-06 07:08:09.000001 UTC"},
               {"UTC", f_RAW_TIME, {5, 1999999}, "5.001999"},
               // The same second through every combination, as none may hand its text to the next.
               {"XYZ-2", 0, {MAY_6, 0}, "2024-05-06 09:08:09.000000 XYZ"},
               {"XYZ-2", f_GMT_TIME, {MAY_6, 0}, "2024-05-06 07:08:09.000000 XYZ"},
               {"ABCD5", f_GMT_TIME, {MAY_6, 0}, "2024-05-06 07:08:09.000000 ABCD"},
               {"ABCD5", 0, {MAY_6, 0}, "2024-05-06 02:08:09.000000 ABCD"},
               {"ABCD5", 0, {MAY_6 + 1, 0}, "2024-05-06 02:08:10.000000 ABCD"},
               {"UTC", f_FMT_SECONDS, {67768036191676799, 0}, "2147485547-12-31 23:59:59 UTC"}};
  for (const auto &c : cases) {
    if (getenv("TZ") == nullptr || std::string(getenv("TZ")) != c.zone)
      set_zone(c.zone);
    char buf[64];
    EXPECT_EQ(mk_timestr(&c.time, c.flags, buf, sizeof buf), std::string(c.expected).size());
    EXPECT_STREQ(buf, c.expected);
  }
}

TEST_F(timeop, zone_is_kept_until_refreshed) {
  set_zone("XYZ-2");
  setenv("TZ", "ABC5", 1);
  EXPECT_STREQ(get_timezone(0), " XYZ");
  EXPECT_STREQ(get_timezone(1), " ABC");
  setenv("TZ", "ABCDEFGHIJKLMNOPQRST0", 1);
  testing::internal::CaptureStderr();
  EXPECT_EQ(get_timezone(1), nullptr);
  EXPECT_TRUE(testing::internal::GetCapturedStderr().starts_with("strftime: "));
  EXPECT_STREQ(get_timezone(0), "#ERR#");
}

TEST_F(timeop, time_stamp_that_does_not_fit) {
  const timespec ts{MAY_6, 0}, endless{LONG_MAX, 0}, raw{5, 0};
  const struct {
    const timespec *time;
    uint32_t flags;
    size_t size;
    int expected;
    const char *report;
  } cases[] = {
      {&ts, 0, 30, 30, ""},
      {&ts, 0, 29, -1, "mk_timestr: timestamp buffer needs 30 bytes, only 29 provided\n"},
      {&raw, f_RAW_TIME, 9, 8, ""},
      {&raw, f_RAW_TIME, 8, -1, ""},
      {&endless, 0, 60, -1, "gmtime_r/localtime_r: Value too large for defined data type\n"},
      {&ts, f_FMT_SECONDS, 60, 23, ""}};
  set_zone("UTC");
  for (const auto &c : cases) {
    char buf[64];
    testing::internal::CaptureStderr();
    EXPECT_EQ(mk_timestr(c.time, c.flags, buf, c.size), c.expected);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), c.report);
  }
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
  const struct {
    const char *zone;
    time_t time, expected;
  } cases[] = {{"UTC", 0, 86399},
               {"UTC", 86399, 86399},
               {"XYZ-2", 80000, 165599},
               // The clocks change between the time and the end of its day.
               {"CET-1CEST,M3.5.0,M10.5.0/3", 1711841400, 1711922399},
               {"CET-1CEST,M3.5.0,M10.5.0/3", 1729981800, 1730069999}};
  for (const auto &c : cases) {
    set_zone(c.zone);
    EXPECT_EQ(get_endofday_utime(c.time), c.expected) << c.zone << " " << c.time;
  }
  log_default(g_log, stderr);
  testing::internal::CaptureStderr();
  EXPECT_EQ(get_endofday_utime(LONG_MAX), -1);
  EXPECT_TRUE(testing::internal::GetCapturedStderr().ends_with(
      "(ERR)  get_endofday_utime: localtime_r() FAILED\n"));
}

TEST_F(timeop, spans) {
  const struct {
    long seconds;
    size_t size;
    int expected;
    const char *text;
  } cases[] = {
      {59, 64, 0, "00h:00m:59s"},
      {86399, 64, 0, "23h:59m:59s"},
      {86400, 64, 0, "01d 00h:00m:00s"},
      {90061, 16, 0, "01d 01h:01m:01s"},
      {8640000, 64, 0, "100d 00h:00m:00s"},
      {90061, 15, -1, nullptr},
      {90061, 4, -1, nullptr},
  };
  for (const auto &c : cases) {
    char buf[64];
    EXPECT_EQ(mk_timespan(c.seconds, buf, c.size), c.expected) << c.seconds;
    if (c.text != nullptr) {
      EXPECT_STREQ(buf, c.text);
    }
  }
}

TEST_F(timeop, arithmetic) {
  const timespec unset{-1, 0}, early{10, 900'000'000}, late{12, 100'999'999};
  EXPECT_EQ(tms2ms(&unset), -1);
  EXPECT_EQ(tms2ms(&late), 12100);
  const timespec delta = timespec_sub(late, early);
  EXPECT_EQ(delta.tv_sec, 1);
  EXPECT_EQ(delta.tv_nsec, 200'999'999);
  EXPECT_DEATH(timespec_sub(early, late),
               "^[^:]+: libtollum/include/timeop/timeop\\.h:[0-9]+: timespec_sub: "
               "Assertion `timespeccmp\\(delta, pb, >=\\)' failed\\.\n$");
  timespec ts;
  EXPECT_DEATH(set_clk_now(&ts, 12345), "^clock_gettime: Invalid argument\n$");
}
