// Functions of the library by tables, and limits that no stream reaches.
#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>

#include <dlfcn.h>
#include <sys/syscall.h>
#include <syslog.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "config/settings.h"
#include "log/statement.h"
#include "meta/app_info.h"
#include "misc/ctxt.h"
#include "misc/timestr.h"
#include "mpegts/mpegts.h"
#include "strops/strops.h"
#include "support/engine.h"
#include "timeop/timeop.h"
#include "tsanalyze/streams.h"

LOG_MODULE(9);

using namespace std::literals;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

namespace {

bool nests_in_conversion; // a handler logs while a line is being stamped
bool clocks_stand;        // 98765 s after the start of the machine, in 2001

} // namespace

// In the C library's place.
extern "C" tm *gmtime_r(const time_t *t, tm *out) noexcept {
  char text[64];
  const timespec second{1, 0};
  if (nests_in_conversion) {
    EXPECT_EQ(mk_timestr(&second, 0, text, sizeof text), -35);
  }
  return reinterpret_cast<decltype(&gmtime_r)>(dlsym(RTLD_NEXT, "gmtime_r"))(t, out);
}

extern "C" int clock_gettime(clockid_t clock, timespec *out) noexcept {
  if (!clocks_stand)
    return static_cast<int>(syscall(SYS_clock_gettime, clock, out));
  *out = {clock == CLOCK_MONOTONIC ? 98'765 : 1'000'000'000, 123'456'789};
  return 0;
}

static void tell(int priority, const char *format, va_list args) {
  fprintf(stderr, "%d ", priority);
  vfprintf(stderr, format, args);
  va_end(args);
}

extern "C" void syslog(int priority, const char *format, ...) {
  va_list args;
  va_start(args, format);
  tell(priority, format, args);
}

// What a hardened program calls.
extern "C" void __syslog_chk(int priority, int, const char *format, ...) {
  va_list args;
  va_start(args, format);
  tell(priority, format, args);
}

// The value, or a refusal, which leaves 77 in its place.
static void expect_size(const std::string &text, int64_t expected) {
  int64_t value = 77;
  errno = ERANGE; // of an earlier call
  const int rc = a2int64(text.c_str(), &value);
  EXPECT_EQ(rc != 0 ? rc : value, expected) << text;
  EXPECT_TRUE(rc == 0 || value == 77) << text;
}

TEST(library, sizes) {
  const std::pair<const char *, int64_t> rows[] = {
      {"9000", 9000},      {"", 0},          {" -12.9", -12},
      {"2K", 2048},        {"2 kB", 2048},   {"1.5K", 1536},
      {"-0.5m", -524288},  {"3Mb", 3145728}, {"1g", 1073741824},
      {"2GB", 2147483648}, {"2KiB", -5},     {"2K ", -5},
      {"0x10", -5},
  };
  for (const auto &[text, expected] : rows)
    expect_size(text, expected);
  expect_size("9223372036854775808", INT64_MAX);
  expect_size("8589934592G", INT64_MAX);
  expect_size("-9223372036854775808", INT64_MIN);
  expect_size("9223372036854777856", -2);
  expect_size("-8589934593G", -2);
  const std::string digits(62, '0');
  expect_size(digits + "1K", 1024);
  expect_size(digits + "01", 1);
  expect_size(digits + "01K", -3);
  expect_size(std::string(310, '9'), -4);
}

TEST(library, facilities) {
  const std::pair<const char *, int> rows[] = {
      {"User", 8},    {"local0", 128}, {"local07", 184}, {"local3x", 152},        {"local8", -1},
      {"Local1", -1}, {"local-1", -1}, {"daemon", -1},   {"local4294967296", -1},
  };
  for (const auto &[text, facility] : rows)
    EXPECT_EQ(str2fac(text), facility) << text;
}

// In ticks of the 33-bit clock, and in milliseconds, of which 32 bits count.
TEST(library, distances) {
  const struct {
    uint64_t first, last, ticks;
    uint32_t ms;
  } rows[] = {
      {900000, 903600, 3600, 40}, {0x1FFFFFF00, 0x100, 512, 5}, {0x1FFFFFFFF, 44998, 44999, 499},
      {0x1FFFFFFFF, 44999, 0, 0}, {90, 9179, 9089, 100},        {0, 386547057090, 386547057090, 5},
  };
  engine e; // for what is said of a clock that runs backwards
  for (const auto &[first, last, ticks, ms] : rows) {
    EXPECT_EQ(calc_pcr_delta(first, last, true), ticks);
    EXPECT_EQ(pcr_delta_ms(first, last), ms);
  }
  const timespec early{10, 900'000'000}, late{12, 100'999'999}, unset{-1, 0};
  const timespec between = timespec_sub(late, early);
  EXPECT_EQ(std::tuple(tms2ms(&early), tms2ms(&late), tms2ms(&between), tms2ms(&unset)),
            std::tuple(10900, 12100, 1200, -1));
}

TEST(library, time_stamps) {
  const time_t second = 1'714'979'289;
  const struct {
    const char *zone; // null: that of the row before
    timespec time;
    uint32_t flags;
    const char *text;
    int length;
    size_t room = 64;
  } rows[] = {
      {"UTC", {second, 123456000}, 0, "2024-05-06 07:08:09.123456 UTC", 30},
      {nullptr, {second, 999999999}, f_FMT_SECONDS, "2024-05-06 07:08:09 UTC", 23},
      {nullptr, {second, 1999}, 0, "2024-05-06 07:08:09.000001 UTC", 30},
      // the same second through every combination, as none may hand its text to the next
      {"XYZ-2", {second, 0}, 0, "2024-05-06 09:08:09.000000 XYZ", 30},
      {nullptr, {second, 0}, f_GMT_TIME, "2024-05-06 07:08:09.000000 XYZ", 30},
      {"ABCD5", {second, 0}, f_GMT_TIME, "2024-05-06 07:08:09.000000 ABCD", 31},
      {nullptr, {second, 0}, 0, "2024-05-06 02:08:09.000000 ABCD", 31},
      {nullptr, {second + 1, 0}, 0, "2024-05-06 02:08:10.000000 ABCD", 31},
      {"UTC", {67768036191676799, 0}, f_FMT_SECONDS, "2147485547-12-31 23:59:59 UTC", 29},
      {nullptr,
       {INT64_MAX, 0},
       0,
       "gmtime_r/localtime_r: Value too large for defined data type\n",
       -1},
      // the last character is cut where it just fits
      {nullptr, {second, 0}, 0, "2024-05-06 07:08:09.000000 UT", 30, 30},
      {nullptr,
       {second, 0},
       0,
       "mk_timestr: timestamp buffer needs 30 bytes, only 29 provided\n"
       "2024-05-06 07:08:09.000000 U",
       -1,
       29},
      {nullptr, {5, 1999999}, f_RAW_TIME, "5.001999", 8, 9},
      {nullptr, {5, 0}, f_RAW_TIME, "5.00000", -1, 8},
      {"ABCDEFGHIJKLMNOPQRST0", {second, 0}, f_FMT_SECONDS, "2024-05-06 07:08:09#ERR#", 24},
  };
  for (const auto &[zone, time, flags, expected, length, room] : rows) {
    char text[64] = "";
    if (zone != nullptr) {
      setenv("TZ", zone, 1);
      CaptureStderr();
      get_timezone(1);
      GetCapturedStderr(); // why there is no name
    }
    CaptureStderr();
    EXPECT_EQ(mk_timestr(&time, flags, text, room), length);
    EXPECT_EQ(GetCapturedStderr() + text, expected);
  }
  setenv("TZ", "UTC", 1);
  EXPECT_STREQ(get_timezone(0), "#ERR#"); // until it is refreshed
  EXPECT_STREQ(get_timezone(1), " UTC");

  nests_in_conversion = true;
  char text[64];
  const timespec time{second, 0};
  EXPECT_EQ(mk_timestr(&time, f_GMT_TIME, text, sizeof text), 30);
  nests_in_conversion = false;
  ms2timestr(3'723'004, text, sizeof text);
  EXPECT_STREQ(text, "01:02:03.004");
}

TEST(library, lines) {
  const std::string cut = "fprintf/vfprintf: Invalid argument\n", many(2047, 'y');
  const struct {
    int level;
    uint32_t flags;
    pid_t pid;
    const char *group;
    size_t letters;
    std::string written;
    int priority = 0;      // of syslog(3)
    std::string told = ""; // on standard error
  } rows[] = {
      {0, 0, 0, "FSCN", 1, "2001-09-09 01:46:40.123456 UTC (NRM)  FSCN  y"},
      {-1, 0, 42, "", 1, "2001-09-09 01:46:40.123456 UTC 42  (WRN)  y", 156},
      {-127, 0, 42, "", 1, "2001-09-09 01:46:40.123456 UTC 42  y", 159},
      {-126, f_NO_TIME, 42, "FSCN", 1, "( ? )  FSCN  y", 159},
      {-127, f_NO_TIME, 0, "too_long_", 1, "too_lon  y", 159},
      {-2, f_FMT_SECONDS, 0, "", 1, "2001-09-09 01:46:40 UTC (CRI)  y", 154},
      {-4, f_RAW_TIME | f_MONOTONIC_TIMER, -5, "", 1, "98765.123456 (PNC)  y", 153},
      {0, 2, 0, "", 1, "", 0, "flags2clock: unsupported timer value: 2\n"},
      // empty or too long: written as far as it got
      {0, f_NO_TIME, 0, "", 0, "(NRM)  ", 0, cut},
      {-127, f_NO_TIME, 0, "", 2047, many, 159},
      {-127, f_NO_TIME, 0, "", 2048, many, 159, cut},
      {-1, f_NO_TIME, 0, "", 5000, "(WRN)  " + many.substr(7), 156, cut},
  };
  setenv("TZ", "UTC", 1);
  get_timezone(1);
  engine e;
  clocks_stand = true;
  for (const auto &[level, flags, pid, group, letters, written, priority, told] : rows) {
    log_ctx log = {};
    log_default(&log, e.out);
    log_mirror(&log, e.out); // gets nothing, being the same file
    log_timefmt(&log, flags);
    log_set_pid(&log, pid);
    log_set_group(&log, mk_n64_tag(group));
    if (priority != 0 || level == 0)
      config_syslog(&log, "korva", LOG_CONS, LOG_LOCAL3);
    CaptureStderr();
    errno = EINVAL;
    log_statement(&log, level, "%s", std::string(letters, 'y').c_str());
    EXPECT_EQ(e.run(), written);
    EXPECT_EQ(GetCapturedStderr(),
              told + (priority ? std::to_string(priority) + " " + written : ""));
  }
  clocks_stand = false;
  log_ctx nowhere = {};
  log_statement(&nowhere, -1, "y");
}

TEST(library, thresholds_and_the_end_of_a_log) {
  engine e;
  int evaluated = 0;
  for (const int threshold : {NORM_level, INFO_level, ERR_level}) {
    g_mod_ll[g_llctx.mod] = threshold;
    for (const int level : {MIN_level, ERR_level, NORM_level, INFO_level, DEBUG_level})
      LOG(g_log, level, "%d\n", ++evaluated);
  }
  EXPECT_EQ(evaluated, 3 + 4 + 2);
  EXPECT_EQ(std::ranges::count(e.run(), '\n'), evaluated);
  log_set_modules(g_log, NORM_level);

  log_ctx standard = {}, full = {};
  log_default(&standard, stderr);
  log_default(&full, fopen("/dev/full", "w"));
  CaptureStderr();
  log_statement(&full, NORM_level, "last line\n");
  log_close(&standard);
  log_close(&full);
  log_close(&full);
  EXPECT_EQ(GetCapturedStderr(),
            "log_close: fclose error(28) for the application log: No space left on device\n");
  EXPECT_EQ(log_fp(&standard), stderr);
}

// What a settings file gives takes the place of all that was there, up to the end of 8 bytes.
TEST(library, texts_of_settings) {
  engine e;
  config_t file;
  config_init(&file);
  config_read_string(&file, "a = \"1234567\"; b = \"12345678\"; c = 12;");
  const std::tuple<const char *, const char *, int, std::string> rows[] = {
      {"a", nullptr, 0, "1234567\0"s},
      {"b", "dflt", -1, "former!?"},
      {"c", "dflt", 0, "dflt\0\0\0\0"s},
      {"d", nullptr, 0, std::string(8, '\0')},
  };
  for (const auto &[key, dflt, rc, expected] : rows) {
    std::string text = "former!?";
    const auto *root = config_root_setting(&file);
    EXPECT_EQ(load_config_setting_str(root, key, text.data(), text.size(), dflt), rc);
    EXPECT_EQ(text, expected);
  }
  EXPECT_EQ(e.run(), "(ERR)  FSCN  load_config_setting_str: b value is too long (8), max = 8 "
                     "characters.\n");
  config_destroy(&file);
}

// Lines are cut where the buffer ends; nothing is written of none.
TEST(library, text_buffers) {
  engine e;
  ctxt_spec text = {}, closed = {};
  add_ctxt_line(&closed, "dropped");
  dump_ctxt(e.out, "nothing", &closed);
  ASSERT_EQ(open_ctxt(&text, 40), 0);
  dump_ctxt(e.out, "nothing", &text);
  EXPECT_EQ(cmp_ctxt(&text, &closed), 0);
  for (int i = 0; i < 3; ++i)
    add_ctxt_line(&text, "%d bcdefghijklmnopqrst", i);
  EXPECT_EQ(cmp_ctxt(&text, &closed), 1);
  EXPECT_EQ(cmp_ctxt(&closed, &text), 1);
  dump_ctxt(e.out, "title", &text);
  const std::string overflow = "(WRN)  FSCN  add_ctxt_line: PMT buffer may overflow, ";
  EXPECT_EQ(e.run(), overflow + "-2 bytes left\n" + overflow + "-1 bytes left\n" +
                         "title\n0 bcdefghijklmnopqrst\n1 bcdefghijklmn\0\n"s);
  close_ctxt(&text);
}

TEST(library, ends_the_process) {
  const timespec early{10, 0}, late{12, 0};
  EXPECT_DEATH(timespec_sub(early, late),
               "^unit_tests: libtollum/include/timeop/timeop\\.h:[0-9]+: timespec_sub: "
               "Assertion `timespeccmp\\(delta, pb, >=\\)' failed\\.\n$");
  timespec now;
  EXPECT_DEATH(set_clk_now(&now, 12345), "^clock_gettime: Invalid argument\n$");
  char text[13];
  ms2timestr(90'000'000, text, sizeof text);
  EXPECT_STREQ(text, "25:00:00.00");
  EXPECT_DEATH(ms2timestr(0, text, 12), "n < \\(ssize_t\\)slen");
}

TEST(library, application_text_that_fits_is_kept) {
  EXPECT_STREQ(get_custom_app_info("korva", std::string(250, 'x').c_str(), nullptr), "#error#");
  const std::string text = get_custom_app_info("korva", "tool", "0");
  EXPECT_EQ(text, "korva (tool) 0.1-10.2 (nuvreck) 0; built on 2018-09-24");
  EXPECT_EQ(get_custom_app_info("other", "tool", "1"), text);
}

TEST(limits, of_streams_in_a_program) {
  engine e;
  const dgram_info place = {0, -1, false, true, &e->pg[0], nullptr};
  e->dat = &place;
  for (uint16_t pid = 1; pid <= 65; ++pid)
    EXPECT_EQ(add_stream(e, pid, 3), pid <= 64 ? pid - 1 : -1);
  EXPECT_EQ(e.run(), "(ERR)  FSCN  add_stream: [src] too many streams: 64\n");
}

TEST(limits, of_a_source_tag_which_may_be_empty) {
  engine e;
  tsan_t tc = tsan_init(std::string(70, 'x').c_str(), &e.cfg, nullptr);
  EXPECT_EQ(tc->cfg.source, std::string(63, 'x'));
  tsan_free(tc);
  tsan_free(tsan_init("", &e.cfg, nullptr)); // the address sanitizer would see what is left
  tsan_free(nullptr);
}
