// The test builder against an independent reader: a wrong builder would prove wrong things right.
#include "support/ts_builder.h"

#include <gtest/gtest.h>

#include <bitstream/mpeg/pes.h>
#include <bitstream/mpeg/psi/pat.h>
#include <bitstream/mpeg/psi/pmt.h>
#include <bitstream/mpeg/ts.h>

TEST(ts_builder, pat_and_pmt_are_valid_sections) {
  ts_bytes pat = pat_section({{0, 16}, {1, 100}, {2, 200}}, {.id = 7, .version = 3});
  ASSERT_TRUE(psi_validate(pat.data()) && psi_check_crc(pat.data()) && pat_validate(pat.data()));
  EXPECT_EQ(pat_get_tsid(pat.data()), 7);
  EXPECT_EQ(psi_get_version(pat.data()), 3);
  EXPECT_EQ(patn_get_pid(pat_get_program(pat.data(), 2)), 200);

  const ts_bytes language = {0x0a, 4, 'e', 'n', 'g', 0};
  ts_bytes pmt = pmt_section(
      {.program = 2, .pcr_pid = 201, .es = {{0x1b, 201}, {0x0f, 202, language}}, .current = false});
  ASSERT_TRUE(psi_validate(pmt.data()) && psi_check_crc(pmt.data()) && pmt_validate(pmt.data()));
  EXPECT_EQ(pmt_get_program(pmt.data()), 2);
  EXPECT_EQ(pmt_get_pcrpid(pmt.data()), 201);
  EXPECT_FALSE(psi_get_current(pmt.data()));
  EXPECT_EQ(pmtn_get_streamtype(pmt_get_es(pmt.data(), 1)), 0x0f);
  EXPECT_EQ(pmtn_get_desclength(pmt_get_es(pmt.data(), 1)), 6);
}

TEST(ts_builder, clock_values_keep_all_33_bits) {
  for (const uint64_t value : {0x1'aaaa'5555ULL, 0x1'ffff'ffffULL, 0ULL, 1ULL}) {
    ts_stream s;
    const ts_packet pcr = s.pcr(101, value);
    EXPECT_EQ(tsaf_get_pcr(pcr.data()), value);
    EXPECT_TRUE(tsaf_has_pcr(pcr.data()));

    ts_packet start = s.pes(101, {.pts = value, .dts = value ^ 1});
    uint8_t *pes = ts_payload(start.data());
    ASSERT_TRUE(pes_validate(pes) && pes_has_pts(pes) && pes_has_dts(pes));
    ASSERT_TRUE(pes_validate_pts(pes) && pes_validate_dts(pes));
    EXPECT_EQ(pes_get_pts(pes), value);
    EXPECT_EQ(pes_get_dts(pes), value ^ 1);
  }
}

TEST(ts_builder, counters_and_adaptation_fields) {
  ts_stream s;
  s.data(101);
  s.pcr(101, 1);
  s.lose(101, 2).data(101, {.discontinuity = true, .pcr = 2});
  s.data(102, {.af_length = 182});
  s.data(102, {.af_length = 255});
  ASSERT_EQ(s.packets.size(), 5U);
  EXPECT_EQ(ts_get_cc(s.packets[1].data()), 0);
  EXPECT_EQ(ts_get_cc(s.packets[2].data()), 3);
  EXPECT_TRUE(tsaf_has_discontinuity(s.packets[2].data()));
  EXPECT_EQ(ts_payload(s.packets[1].data()) - s.packets[1].data(), 188);
  EXPECT_EQ(ts_payload(s.packets[2].data()) - s.packets[2].data(), 12);
  EXPECT_EQ(ts_payload(s.packets[3].data()) - s.packets[3].data(), 187);
  EXPECT_EQ(ts_get_cc(s.packets[4].data()), 1);
  EXPECT_EQ(ts_get_adaptation(s.packets[4].data()), 255);
}

TEST(ts_builder, long_section_spans_packets) {
  ts_stream s;
  const ts_bytes section = pmt_section({.pcr_pid = 101, .es = std::vector<es_spec>(60, {3, 102})});
  s.section(100, section);
  ASSERT_EQ(s.packets.size(), 2U);
  EXPECT_EQ(s.packets[0][1], 0x40);
  EXPECT_EQ(s.packets[1][1], 0x00);
  EXPECT_EQ(s.packets[1][4], section[183]);
}
