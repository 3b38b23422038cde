// Numbers as text (strops), in settings files (config) and on the 90 kHz clock (mpegts).
#include <cerrno>
#include <string>

#include <gtest/gtest.h>

#include "config/settings.h"
#include "log/log.h"
#include "mpegts/mpegts.h"
#include "strops/strops.h"

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

TEST(strops, sizes) {
  constexpr int64_t UNTOUCHED = 77;
  const std::string zeros(62, '0');
  const struct {
    std::string text;
    int64_t value;
    int result = 0;
  } cases[] = {
      {"9000", 9000},
      {"", 0},
      {" -12.9", -12},
      {"2K", 2048},
      {"2 kB", 2048},
      {"1.5K", 1536},
      {"-0.5m", -524288},
      {"3Mb", 3145728},
      {"1g", 1073741824},
      {"2GB", 2147483648},
      {"9223372036854775808", INT64_MAX},
      {"8589934592G", INT64_MAX},
      {"-9223372036854775808", INT64_MIN},
      {zeros + "1K", 1024},
      {zeros + "01", 1},
      {"9223372036854777856", UNTOUCHED, -2},
      {"-8589934593G", UNTOUCHED, -2},
      {zeros + "01K", UNTOUCHED, -3},
      {std::string(400, '9'), UNTOUCHED, -4},
      {"2KiB", UNTOUCHED, -5},
      {"2K ", UNTOUCHED, -5},
      {"0x10", UNTOUCHED, -5},
  };
  for (const auto &c : cases) {
    int64_t value = UNTOUCHED;
    errno = ERANGE; // of an earlier call
    EXPECT_EQ(a2int64(c.text.c_str(), &value), c.result) << c.text;
    EXPECT_EQ(value, c.value) << c.text;
  }
}

// More of what a settings file can say is in cli/expected/changes.txt.
TEST(settings, text_is_refused_or_clears_what_was_there) {
  config_t file;
  config_init(&file);
  ASSERT_EQ(config_read_string(&file, "a = \"1234567\"; b = \"12345678\"; c = 12;"), CONFIG_TRUE);
  log_default(g_log, nullptr);
  const struct {
    const char *name, *otherwise, *expected; // null: refused
  } cases[] = {{"a", "", "1234567"}, {"b", "", nullptr}, {"c", "dflt", "dflt"}, {"d", nullptr, ""}};
  for (const auto &c : cases) {
    char text[9] = "former!"; // of an earlier settings file
    const int rc =
        load_config_setting_str(config_root_setting(&file), c.name, text, 8, c.otherwise);
    std::string expected = c.expected ? c.expected : "former!";
    expected.resize(sizeof text);
    EXPECT_EQ(rc, c.expected ? 0 : -1) << c.name;
    EXPECT_EQ(std::string(text, sizeof text), expected) << c.name;
  }
  config_destroy(&file);
}

TEST(mpegts, distances) {
  const std::string name = "(WRN)  calc_pcr_delta: PCR ";
  const struct {
    uint64_t first, last;
    unsigned flags;
    uint64_t expected;
    std::string report = "";
  } cases[] = {{900000, 903600, 0, 3600},
               {0, 50000, PCR_REPORT_GAP, 50000},
               {0x1FFFFFF00, 0x100, PCR_ABORT_BACKWARDS, 512},
               {0x1FFFFFFFF, 44998, 0, 44999},
               {0x1FFFFFFFF, 44999, 0, 0,
                name + "last=44999 < first=8589934591 diff=18446744065119662024\n"},
               {1000, 500, 0, 0, name + "last=500 < first=1000 diff=18446744073709551116\n"},
               {1000, 500, PCR_QUIET, 0},
               {1000, 46000, PCR_REPORT_GAP, 45000},
               {1000, 46001, 0, 45001},
               {1000, 46001, PCR_REPORT_GAP, 45001,
                name + "gap=45001 exceeds max=45000; last=46001, first=1000\n"}};
  log_default(g_log, stderr);
  log_timefmt(g_log, f_NO_TIME);
  for (const auto &c : cases) {
    CaptureStderr();
    EXPECT_EQ(calc_pcr_delta(c.first, c.last, c.flags), c.expected);
    EXPECT_EQ(GetCapturedStderr(), c.report);
  }
  EXPECT_DEATH(calc_pcr_delta(1000, 500, PCR_ABORT_BACKWARDS), "PCR last=500 < first=1000");
  EXPECT_EQ(pcr_delta_ms(90, 90 + 9089), 100);
  EXPECT_EQ(pcr_delta_ms(0, 90 * ((uint64_t{1} << 32) + 5)), 5); // the low 32 bits
}
