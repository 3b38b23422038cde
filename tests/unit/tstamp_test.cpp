#include <gtest/gtest.h>

#include "support/engine.h"

TEST(tstamp, audio_against_reference) {
  engine e;
  e.cfg.max_pdts_delta = 100;
  // A stamp waits for that of the reference, and is checked once.
  e.start().s.pes(102, {.pts = 900'050}), e.s.pes(101, {.pts = 900'000});
  e.s.data(102), e.s.data(102), e.s.pes(102, {.pts = 900'000}),
      e.s.pes(102, {.pts = 909'000}); // 0 and just 100 ms
  e.s.pcr(101, 450'000);
  e.s.pes(101, {.pts = 909'090, .dts = 909'090}), e.s.pes(102, {.pts = 900'000, .dts = 918'180});
  e.s.pes(101, {.pts = 0x1'ffff'ffff}), e.s.pes(102, {.pts = 5}); // the wrap is not made up for
  EXPECT_EQ(
      e.run(),
      R"((WRN)  FSCN  ALERT AV-DELTA0 [src] 0:1[5] V:pts(pid101)/A:pts(pid102) = 900000 [00:00:10.000]/900050 [00:00:10.000] PCR=0 [00:00:00.000], delta=0
ALERT AV-DELTA0 src pts 101 900000 102 900050 0 [0:1[5]]
(WRN)  FSCN  ALERT AV-DELTA+ [src] 0:1[11]:(pcr=450000)+2 V:pts(pid101)/A:pts(pid102) = 909090 [00:00:10.101]/900000 [00:00:10.000] PCR=450000 [00:00:05.000], delta=101
ALERT AV-DELTA+ src pts 101 909090 102 900000 101 [0:1[11]:(pcr=450000)+2]
(WRN)  FSCN  ALERT AV-DELTA+ [src] 0:1[11]:(pcr=450000)+2 V:dts(pid101)/A:dts(pid102) = 909090 [00:00:10.101]/918180 [00:00:10.202] PCR=450000 [00:00:05.000], delta=101
ALERT AV-DELTA+ src dts 101 909090 102 918180 101 [0:1[11]:(pcr=450000)+2]
(WRN)  FSCN  ALERT AV-DELTA+ [src] 0:1[13]:(pcr=450000)+4 V:pts(pid101)/A:pts(pid102) = 8589934591 [26:30:43.717]/5 [00:00:00.000] PCR=450000 [00:00:05.000], delta=95443717
ALERT AV-DELTA+ src pts 101 8589934591 102 5 95443717 [0:1[13]:(pcr=450000)+4]
)");
  EXPECT_TRUE(e->pg[0].alert.av_delta0 == 1 && e->pg[0].alert.av_deltaplus == 3);
}

TEST(tstamp, audio_against_pcr) {
  engine e;
  e.cfg.max_pcr_delta = 100;
  e.start().s.pes(102, {.pts = 1}), e.s.pcr(101, 900'000), e.s.pes(102, {.pts = 909'000});
  e.s.pes(102, {.pts = 909'090, .dts = 890'910});
  EXPECT_EQ(
      e.run(),
      R"((WRN)  FSCN  ALERT PCR-DELTA [src] pcr:pts <> 0:0[4]:0:1[6]:(pcr=900000)+2 V:pcr(pid101)/A:pts(pid102) = 900000 [00:00:10.000]/ 909090 [00:00:10.101] delta=101
ALERT PCR-DELTA src pts 101 900000 102 909090 101 [0:1[6]:(pcr=900000)+2]
(WRN)  FSCN  ALERT PCR-DELTA [src] pcr:dts <> 0:0[4]:0:1[6]:(pcr=900000)+2 V:pcr(pid101)/A:dts(pid102) = 900000 [00:00:10.000]/ 890910 [00:00:09.899] delta=101
ALERT PCR-DELTA src dts 101 900000 102 890910 101 [0:1[6]:(pcr=900000)+2]
)");
  e->pg[0].pcr_idx = -1;
  e.s.data(102); // never checked against the reference, both stamps are still new
  EXPECT_NE(e.run().find("+3 P:pcr(pid101)/A:pts(pid102) = "), std::string::npos);
  EXPECT_EQ(e->pg[0].alert.pcr_delta, 4U);
}

TEST(tstamp, pcr_interval) {
  engine e;
  e.cfg.pcr_freq_ms = 40;
  e.start();
  for (const uint64_t pcr : {900'000UL, 903'600UL, 907'290UL, 0UL, 0x1'ffff'ff00UL, 256UL, 200UL})
    e.s.pcr(101, pcr);
  // The times are the ticks as if they were milliseconds.
  EXPECT_EQ(
      e.run(),
      R"((WRN)  FSCN  ALERT PCR-FREQ pid=101 old/new: 903600 [00:15:03.600]/907290 [00:15:07.290] delta=41
ALERT PCR-FREQ src 101 903600 907290 41 [0:0[5]:(pcr=903600)+1]
(WRN)  FSCN  calc_pcr_delta: PCR last=0 < first=907290 diff=18446744073708644326
(WRN)  FSCN  calc_pcr_delta: PCR last=200 < first=256 diff=18446744073709551560
)");
  EXPECT_TRUE(e->pg[0].alert.pcr_freq == 1 && e->pg[0].av_pcr_freq.g_count == 5);
}

TEST(tstamp, trace_needs_the_debug_level) {
  engine e(INFO_level);
  e.cfg.trk.pdts_update = true;
  e.start().s.data(102), e.run();
  e.s.pes(102, {.pts = 900'000, .dts = 900'000});
  EXPECT_EQ(e.run(), "");
  g_mod_ll[0] = DEBUG_level;
  e.s.pes(102, {.pts = 900'090, .dts = 900'000}), e.s.pes(102, {.pts = 900'090, .dts = 900'180});
  EXPECT_EQ(e.run(),
            R"((INF)  FSCN  update_pts_dts: [src] PTS=900090 [00:00:10.001] pid=102 at 0:1[5]
(INF)  FSCN  update_pts_dts: [src] DTS=900180 [00:00:10.002] pid=102 at 0:1[6]
)");
  EXPECT_FALSE(e->pg[0].stm[1].pts_updated); // a repeated stamp is not new
}
