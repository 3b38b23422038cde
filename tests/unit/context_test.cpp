#include <gtest/gtest.h>

#include "support/engine.h"
#include "tsanalyze/ptag.h"
#include "tsanalyze/tdiff.h"

namespace {

void spoil(ts_packet &pkt) {
  pkt[0] = 0x48;
}

} // namespace

TEST(context, packet_tags) {
  engine e(INFO_level);
  e.cfg.trk.pcr_update = true;
  spoil(e.s.null()), spoil(e.s.pat({}));
  EXPECT_EQ(e.run(), "(ERR)  FSCN  tsan_process: [src] out of sync at pkt[1]\n"
                     "(ERR)  FSCN  tsan_process: [src] out of sync at PAT[2]\n");
  EXPECT_EQ(e.rc, -1);
  spoil(e.start().s.pmt(100, {})), spoil(e.s.data(102));
  // A PCR packet's own tag still counts from the PCR before it.
  e.s.pcr(101, 0), e.s.null(), e.s.pcr(101, 0x1'ffff'ffff);
  spoil(e.s.data(102)), spoil(e.s.pmt(100, {})), spoil(e.s.pat({})), spoil(e.s.null());
  EXPECT_EQ(e.run(), R"((ERR)  FSCN  tsan_process: [src] out of sync at 0:M[5]
(ERR)  FSCN  tsan_process: [src] out of sync at 0:1[6]
(INF)  FSCN  [src] new PCR=0 [00:00:00.000] at 0:0[7]
(INF)  FSCN  analyze_pkt: 6 skipped before analysis
(INF)  FSCN  [src] new PCR=8589934591 [26:30:43.717] at 0:0[9]:(pcr=0)+2
(ERR)  FSCN  tsan_process: [src] out of sync at 0:1[10]:(pcr=8589934591)+1
(ERR)  FSCN  tsan_process: [src] out of sync at 0:M[11]:(pcr=8589934591)+2
(ERR)  FSCN  tsan_process: [src] out of sync at PAT[12]
(ERR)  FSCN  tsan_process: [src] out of sync at pkt[13]
)");
  EXPECT_STREQ(e->pg[0].pcr_ptag, "0:0[9]:(pcr=0)+2");
  tsan_set_pidx(e, UINT64_MAX - 1);
  e.s.data(102);
  EXPECT_EQ(e.run(), "(WRN)  FSCN  [src] packet index changed from 13 to 18446744073709551614\n");
  EXPECT_EQ(tsan_get_pidx(e), UINT64_MAX);
  EXPECT_STREQ(ptag(e), "0:1[18446744073709551615]:(pcr=8589934591)+1844674407370955160"); // cut
}

TEST(context, skipped_before_analysis) {
  engine e(INFO_level);
  e.cfg.is_enabled = false;
  e.s.pat({{1, 100}, {2, 200}}), e.s.pmt(100, {.pcr_pid = 101, .es = {{0x0f, 101}}});
  e.s.pmt(200, {.pcr_pid = 201, .es = {{0x0f, 201}}});
  e.run();
  e.s.data(101), e.s.lose(101).data(101), e.s.null(), e.s.data(201);
  EXPECT_EQ(e.run(), "(INF)  FSCN  analyze_pkt: 3 skipped before analysis\n"
                     "(INF)  FSCN  analyze_pkt: 6 skipped before analysis\n");
  EXPECT_TRUE(e->pre_skipped == 6 && e->atotal == 3);
}

TEST(context, idle_rule) {
  engine e;
  e.cfg.max_skip_pkts = 2;
  std::string results;
  for (const time_t seconds : {1000, 1000, 1010, 1011}) { // of the next notice: more than 10 later
    test_seconds = seconds;
    e.s.pat({{1, 100}});
    results += e.run();
    results += std::to_string(e.rc) + " ";
  }
  EXPECT_EQ(results, "0 (ERR)  FSCN  [src] has been idling for too long (2/2 packets)\n-16 -16 "
                     "(ERR)  FSCN  [src] has been idling for too long (4/2 packets)\n-16 ");
  e.start().s.data(102), e.s.null(), e.run();
  EXPECT_EQ(e.rc, 0); // one analyzed packet is enough
}

TEST(context, lost_sync) {
  engine e;
  e.cfg.access_log_alerts = false;
  e.s.null(), e.run();
  std::string results;
  // The window counts from its start: 1000, 1003, 1006; once full it is never left.
  for (const time_t seconds : {1000, 1000, 1001, 1001, 1002, 1002, 1002, 1002, 1002, 1003,
                               1005, 1006, 1006, 1006, 1006, 1006, 1006, 1006, 1006, 1008}) {
    test_seconds = seconds;
    results += tsan_alert_lostsync(e) == 0 ? '+' : '-';
  }
  EXPECT_EQ(results, "+++++++++++++++++++"
                     "+");
  e.run();
  test_seconds = 1008;
  EXPECT_EQ(tsan_alert_lostsync(e), -1);
  EXPECT_EQ(e.run(), "(WRN)  FSCN  ALERT LOST-SYNC [src] seq=10 at pkt[1]\n"
                     "ALERT LOST-SYNC src 10 [pkt[1]]\n"
                     "(ERR)  FSCN  tsan_alert_lostsync: bailing out after 10 cases within 2 sec\n");
  test_seconds = 1020;
  e->cfg.no_rlog = true;
  EXPECT_EQ(tsan_alert_lostsync(e), -1);
  EXPECT_EQ(e.run(),
            "ALERT LOST-SYNC src 11 [pkt[1]]\n"
            "(ERR)  FSCN  tsan_alert_lostsync: bailing out after 11 cases within 14 sec\n");
  EXPECT_EQ(e->gac.lost_sync, 22U);
}

TEST(context, source_tag_is_the_mark_of_a_live_context) {
  engine e;
  tsan_t tc = tsan_init(std::string(70, 'x').c_str(), &e.cfg, nullptr);
  EXPECT_EQ(tc->cfg.source, std::string(63, 'x'));
  tc->cfg.source[0] = '\0';
  tsan_free(tc);
  EXPECT_EQ(e.run().find("(WRN)  FSCN  tsan_free: avoiding double-freeing of tsan[] (0x"), 0U);
  tc->cfg.source[0] = 'x';
  tsan_free(tc);
}
