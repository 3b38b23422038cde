#include <gtest/gtest.h>

#include "support/engine.h"

TEST(cc, breaks) {
  engine e;
  e.start();
  for (const uint8_t counter : std::initializer_list<uint8_t>{14, 15, 0, 1, 1, 0, 15})
    e.s.packets.push_back(make_packet(102, counter, {}, {}));
  e.s.packets.push_back(make_packet(102, 9, {.has_payload = false}, {}));
  EXPECT_EQ(e.run(), R"((WRN)  FSCN  ALERT CC-BRK [src] dgram:0 last/current=1/1 pid=102 at 0:1[7]
ALERT CC-BRK src 102 0 1 1 0:1[7]
(WRN)  FSCN  ALERT CC-BRK [src] dgram:0 last/current=1/0 pid=102 at 0:1[8]
ALERT CC-BRK src 102 0 1 0 0:1[8]
(WRN)  FSCN  ALERT CC-BRK [src] dgram:0 last/current=0/15 pid=102 at 0:1[9]
ALERT CC-BRK src 102 0 0 15 0:1[9]
)");
  e->cfg.no_rlog = e->cfg.trk.cc_track = true;
  e->cfg.access_log_alerts = false;
  g_mod_ll[0] = INFO_level;
  e.s.packets = {make_packet(102, 3, {}, {}), make_packet(102, 3, {}, {})};
  EXPECT_EQ(e.run(), "(INF)  FSCN  cc_track: [src] CC=3 pid=102 at 0:1[11]\n"
                     "(INF)  FSCN  cc_track: [src] CC=3 pid=102 at 0:1[12]\n");
  EXPECT_EQ(e->pg[0].alert.cc_break, 5U); // counted though not written
}

TEST(cc, resets) {
  engine e;
  e.cfg.cc_max_ms0_ms = 500;
  e.start().s.packets.push_back(make_packet(102, 5, {}, {}));
  const auto zero_at = [&](long ms) { // an unexpected 0
    test_now = {100 + ms / 1000, ms % 1000 * 1'000'000};
    e.s.packets.push_back(make_packet(102, 0, {}, {}));
    return e.run();
  };
  zero_at(0);
  EXPECT_EQ(zero_at(2000), "(WRN)  FSCN  ALERT CC-RST [src] dgram:0 last/current=0/0 pid=102 "
                           "delta_ms=2000 at 0:1[5]\nALERT CC-RST src 102 0 0 0 2000 0:1[5]\n");
  e->cfg.no_rlog = true;
  EXPECT_EQ(zero_at(2100), "ALERT CC-BRK src 102 0 0 0 0:1[6]\n"); // too soon, but counts from here
  EXPECT_EQ(zero_at(2600), "ALERT CC-RST src 102 0 0 0 500 0:1[7]\n");
  EXPECT_EQ(zero_at(3099), "ALERT CC-BRK src 102 0 0 0 0:1[8]\n");
  e->cfg.cc_max_ms0_ms = 0;
  EXPECT_EQ(zero_at(9000), "ALERT CC-BRK src 102 0 0 0 0:1[9]\n");
  EXPECT_TRUE(e->pg[0].alert.cc_break == 4 && e->pg[0].alert.cc_reset == 2);
}

TEST(cc, losses_on_several_streams) {
  engine e;
  e.start({.pcr_pid = 101, .es = {{3, 101}, {3, 102}, {3, 103}, {3, 104}}});
  e.s.data(101), e.s.data(102), e.s.data(103), e.s.data(104);
  // PIDs of the packets, and how many are lost before each.
  using datagram = std::vector<std::pair<uint16_t, unsigned>>;
  std::string text;
  for (const datagram &d :
       {datagram{{102, 2}, {103, 2}}, // not marked yet
        datagram{{102, 2}, {103, 2}}, datagram{{101, 0}, {102, 2}, {103, 2}, {104, 2}},
        datagram{{102, 2}, {103, 1}}, datagram{{102, 2}, {102, 2}},
        datagram{{102, 9}, {103, 9}, {104, 9}}}) {
    for (const auto &[pid, lost] : d)
      e.s.lose(pid, lost).data(pid);
    e.run();
    tsan_next_seg(e);
    text += e.run();
  }
  EXPECT_EQ(text, "(WRN)  FSCN  ALERT CC-MLR [src] dgram:1 count=1 at 0:2[10]"
                  "ALERT CC-MLR src 1 1 0:2[10]\n"
                  "(WRN)  FSCN  ALERT CC-MLR [src] dgram:5 count=2 at 0:3[21]"
                  "ALERT CC-MLR src 5 2 0:3[21]\n");
  EXPECT_EQ(e->gac.cc_mlr, 2U);
  e.s.null(), e.run();
  tsan_next_seg(e); // no program at hand
  EXPECT_EQ(e->pg[0].last_seg_idx, 6U);
}
