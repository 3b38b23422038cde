#include <gtest/gtest.h>

#include "support/engine.h"

TEST(classify, traces) {
  engine e(INFO_level);
  e.cfg.trk.misc_ignore = true;
  e.start({.pcr_pid = 150, .es = {{0x0f, 102}}}).s.packet(17);
  e.s.null(), e.s.pcr(150, 1); // a PCR's PID that is no stream's
  EXPECT_EQ(e.run(), "(INF)  FSCN  upsert_pkt_info: [src] ignoring pid=8191 pkt[4]\n"
                     "(INF)  FSCN  upsert_pkt_info: [src] ignoring pid=150 pkt[5]\n");
  e->cfg.trk.sdt_ignore = e->cfg.trk.pat_pmt_pkt = true;
  e.s.packet(17), e.s.pmt(100, {.pcr_pid = 150, .es = {{0x0f, 102}}});
  EXPECT_EQ(e.run(), "(INF)  FSCN  [src] disregarding SDT at pkt[6]\n"
                     "(INF)  FSCN  [src] found PMT (pid100) at 0:M[7]\n");
}

TEST(classify, stamps_that_the_packet_holds) {
  const struct {
    packet_spec packet; // an adaptation field of n bytes leaves 183 - n
    uint8_t stream_id;
    bool pts, dts;
  } cases[] = {
      {{}, 0xe0, true, true},
      {{}, 0xbc, true, true},
      {{}, 0xbb, false, false},
      {{.has_payload = false}, 0xe0, false, false},
      {{.af_length = 164}, 0xe0, true, true},
      {{.af_length = 165}, 0xe0, true, false},
      {{.af_length = 169}, 0xe0, true, false},
      {{.af_length = 170}, 0xe0, false, false},
      {{.af_length = 180}, 0xe0, false, false},
      {{.af_length = 183}, 0xe0, false, false},
      {{.af_length = 184}, 0xe0, false, false},
      {{.af_length = 255}, 0xe0, false, false},
  };
  for (const auto &c : cases) {
    engine e;
    e.start().s.pes(102, {.pts = 0x1'0000'0001, .dts = 5, .stream_id = c.stream_id}, c.packet);
    e.run();
    const stream_info &stm = e->pg[0].stm[1];
    EXPECT_EQ(stm.last_pts, c.pts ? 0x1'0000'0001 : 0) << int{c.packet.af_length.value_or(0)};
    EXPECT_EQ(stm.last_dts, c.dts ? 5 : 0) << int{c.packet.af_length.value_or(0)};
    EXPECT_TRUE(e.rc == 0 && stm.pcount == 1);
  }
}

TEST(classify, pcr) {
  const struct {
    uint8_t af_length, flags;
    bool has_pcr;
  } cases[] = {{7, 0x10, true}, {7, 0xef, false},  {0, 0x10, false},
               {1, 0x10, true}, {183, 0x10, true}, {255, 0x10, true}};
  for (const auto &c : cases) {
    engine e;
    ts_packet &pkt = e.start().s.pes(101, {.pts = 1}, {.pcr = 0x1'2345'6789});
    pkt[4] = c.af_length, pkt[5] = c.flags;
    e.run();
    EXPECT_EQ(e->pg[0].got_pcr, c.has_pcr);
    EXPECT_EQ(e->pg[0].last_pcr, c.has_pcr ? 0x1'2345'6789 : 0);
    EXPECT_EQ(e->pg[0].stm[0].last_pts, c.af_length == 7 ? 1 : 0); // both are read
  }
}

TEST(classify, shared_pid_belongs_to_the_first_program) {
  engine e;
  e.s.pat({{1, 200}, {2, 100}});
  e.s.pmt(100, {.pcr_pid = 102, .es = {{0x0f, 102}}});
  e.s.pmt(200, {.pcr_pid = 102, .es = {{0x0f, 102}}}), e.s.pcr(102, 900'000);
  e.run();
  EXPECT_TRUE(e->pg[0].got_pcr && e->pg[0].stat.a_pcount == 1 && e->pg[1].stat.a_pcount == 0);
}
