#include "mpegts/mpegts.h"

#include <gtest/gtest.h>

#include <string>

#include "log/log.h"

TEST(mpegts, distances) {
  const struct {
    uint64_t first, last;
    unsigned flags;
    uint64_t expected;
    const char *report;
  } cases[] = {
      {900000, 903600, 0, 3600, ""},
      {500, 500, 0, 0, ""},
      {0, 0, PCR_REPORT_GAP, 0, ""},
      {0, 50000, PCR_REPORT_GAP, 50000, ""},
      {0x1FFFFFF00, 0x100, PCR_ABORT_BACKWARDS, 512, ""},
      {0x200000000 - 1, 44998, 0, 44999, ""},
      {0x200000000 - 1, 44999, 0, 0,
       "calc_pcr_delta: PCR last=44999 < first=8589934591 diff=18446744065119662024\n"},
      {1000, 500, 0, 0, "calc_pcr_delta: PCR last=500 < first=1000 diff=18446744073709551116\n"},
      {1000, 46000, PCR_REPORT_GAP, 45000, ""},
      {1000, 46001, 0, 45001, ""},
      {1000, 46001, PCR_REPORT_GAP, 45001,
       "calc_pcr_delta: PCR gap=45001 exceeds max=45000; last=46001, first=1000\n"}};
  log_default(g_log, stderr);
  log_timefmt(g_log, f_NO_TIME);
  for (const auto &c : cases) {
    const std::string report = *c.report == '\0' ? "" : std::string("(WRN)  ") + c.report;
    testing::internal::CaptureStderr();
    EXPECT_EQ(calc_pcr_delta(c.first, c.last, c.flags), c.expected);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), report);
  }
  EXPECT_DEATH(calc_pcr_delta(1000, 500, PCR_ABORT_BACKWARDS), "PCR last=500 < first=1000");
}

TEST(mpegts, milliseconds_are_truncated_to_32_bits) {
  EXPECT_EQ(pcr_delta_ms(90, 90 + 9089), 100);
  EXPECT_EQ(pcr_delta_ms(0, 90 * ((uint64_t{1} << 32) + 5)), 5);
}

TEST(mpegts, pcr_base_has_33_bits) {
  const uint8_t pkt[12] = {0x47, 0, 0, 0x20, 7, 0x10, 0xFF, 0xFF, 0xFF, 0xFF, 0x80, 0x7F};
  EXPECT_EQ(ts_get_pcr_base(pkt), PCR_WRAP - 1);
  const uint8_t odd[12] = {0x47, 0, 0, 0x20, 7, 0x10, 0x12, 0x34, 0x56, 0x78, 0x7F, 0xFF};
  EXPECT_EQ(ts_get_pcr_base(odd), 0x12345678ULL << 1);
}
