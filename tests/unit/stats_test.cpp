#include <gtest/gtest.h>

#include "misc/aval.h"
#include "misc/timestr.h"
#include "support/engine.h"

TEST(stats, aggregates) {
  aggr_val av = {};
  inc_aval(&av, 7);
  reset_aval(&av);
  inc_aval(&av, 100); // reaches the global extremes with the next sample only
  EXPECT_TRUE(av.min == 100 && av.max == 100 && av.g_min == 7 && av.g_max == 7);
  inc_aval(&av, 1);
  EXPECT_TRUE(av.min == 1 && av.max == 100 && av.g_min == 1 && av.g_max == 100);
  engine e;
  dump_aval(e.out, "gap", &av);
  EXPECT_EQ(e.run(), "gap:\t\tlocal-avg  = 50.50 (V=101/N=2) min(V)/max(V)=1/100, "
                     "global-avg = 36.00 (V=108/N=3) min(V)/max(V)=1/100\n");
}

TEST(stats, time_text) {
  char text[14] = {};
  ms2timestr(3'723'004, text, 14);
  EXPECT_STREQ(text, "01:02:03.004");
  ms2timestr(90'000'000, text, 13); // one character fewer than asked for
  EXPECT_STREQ(text, "25:00:00.00");
  EXPECT_DEATH(ms2timestr(0, text, 12),
               "vantor/misc/timestr\\.cpp:[0-9]+: ms2timestr: Assertion `n < \\(ssize_t\\)slen'");
}

TEST(stats, report) {
  engine e;
  e.s.pat({{1, 100}, {2, 200}});
  e.s.pmt(100, {.pcr_pid = 101, .es = {{0x1b, 101}, {0x0f, 102}, {6, 103}}});
  e.s.data(101), e.s.data(102), e.s.data(103), e.s.data(103), e.run();
  e->pg[0].alert = {1, 2, 3, 4, 5, 6, 7, 8};
  e->gac = {1, 2, 3};
  e->pg[0].stat.s_acount = e->pg[0].stm[2].acount = 9;
  tsan_dump_stats(e.out, e);
  const std::string text = e.run(), second = "\t---- PRG(1):0 streams, PMT(0) PCR(0) ----\n";
  EXPECT_EQ(
      text.substr(0, text.find(second)),
      "tsan_stats BEGIN\n\tProcessed/analyzed             6/4\n"
      "\tPackets start-skipped:         2\n\tPrograms:                      2 (MPTS)\n\n"
      "\tStream-scope ALERTS:\n\t\tLOST-SYNC:         1\n\t\tPAT-DIFF:          2\n"
      "\t\tCC-MLR:            3\n\n\t---- PRG(0):3 streams, PMT(100) PCR(101) ----\n\tTracks:\n"
      "\t\t[0:0] V(pid101) [H.264/14496-10 video (MPEG-4/AVC)]: P/A: 1/1\n"
      "\t\t[0:1] A(pid102) [13818-7 Audio with ADTS transport syntax]: P/A: 1/1\n"
      "\t\t[0:2] S(pid103) [13818-1 PES private data]: P/A: 2/9\n\n\t++ Packets:\n"
      "\t\tprocessed/analyzed:    4/4\n\t\tprocessed V/A/S:       1/1/2\n"
      "\t\tanalyzed  V/A/S:       1/1/9\n\n\t++ Alerts:\n\t\tAV delta:          2\n"
      "\t\tAV zero:           1\n\t\tPCR delta:         3\n\t\tPCR frequency:     4\n"
      "\t\tCC-BRK:            5\n\t\tCC-RST:            6\n\t\tPMT-DIFF:          7\n"
      "\t\tPID-NDAT:          8\n\n\t------------------------------------------\n");
  EXPECT_EQ(text.substr(text.size() - 16), "\ntsan_stats END\n");
  engine single;
  tsan_dump_stats(single.out, single.start());
  EXPECT_NE(single.run().find("\tPrograms:                      1 \n\n"), std::string::npos);
}

TEST(stats, records) {
  engine e;
  e.cfg.max_pdts_delta = e.cfg.max_pcr_delta = e.cfg.pcr_freq_ms = 1000;
  e.s.pat({{1, 100}, {2, 200}});
  e.s.pmt(100, {.pcr_pid = 102, .es = {{0x1b, 101}, {0x0f, 102}}});
  for (const uint64_t pcr : {900'000u, 903'600u, 905'400u})
    e.s.pcr(102, pcr);
  e.s.null(), e.run();
  e->pg[0].alert = {1, 2, 3, 4, 5, 6, 7, 8};
  e->pg[0].stat = {1, 2, 3, 4, 5, 6, 7, 8};
  e->gac = {1, 2, 3};
  e->pg[1].skip_pmt_out = 255;
  test_now = {102, 500'000'000};
  const auto records = [&] {
    tsan_alog_stats(e);
    std::string text = e.run();
    for (size_t at; (at = text.find("-nan")) != text.npos;)
      text.erase(at, 1);
    return text;
  };
  EXPECT_EQ(records(), R"(STAT GLOBAL src 2500 2 2 1 2 3
STAT PMTs src 0 100 2
STAT PMTi src 0 101 V 0 0 [H.264/14496-10_video_(MPEG-4/AVC)]
STAT PMTi src 0 102 A 3 3 [13818-7_Audio_with_ADTS_transport_syntax]
STAT PRG src 102 1 2 3 4 5 6 7 8
STAT AV-delta src 101 -1 nan 0 0 0 0 nan 0 0 0 0
STAT PCR-delta src 102 -1 nan 0 0 0 0 nan 0 0 0 0
STAT PCR-freq src 102 -1 30.00 2 60 20 40 30.00 2 60 20 40
STAT ALERT-count src 0 2 1 3 4 5 6 8
STAT PRG src 102 0 0 0 0 0 0 0 0
STAT AV-delta src -1 -1 nan 0 0 0 0 nan 0 0 0 0
STAT PCR-delta src -1 -1 nan 0 0 0 0 nan 0 0 0 0
STAT PCR-freq src -1 -1 nan 0 0 0 0 nan 0 0 0 0
STAT ALERT-count src 1 0 0 0 0 0 0 0
)");
  tsan_reset_local_stats(e);
  const std::string later = records();
  EXPECT_NE(later.find("STAT PCR-freq src 102 -1 nan 0 0 0 0 30.00 2 60 20 40\n"), later.npos);
  EXPECT_NE(later.find("STAT PMTs src 1 0 0\nSTAT PRG"), later.npos);
  EXPECT_EQ(later.find("STAT PMTs src 0"), later.npos);
}

TEST(stats, periodic) {
  engine e;
  e.cfg.dump_stats_period = 60;
  std::string seen; // at each call: whether it returned 1, reported, and wrote records
  for (const auto &[seconds, reports] :
       std::initializer_list<std::pair<time_t, bool>>{{1000, true},
                                                      {1059, true},
                                                      {1060, true},
                                                      {1119, true},
                                                      {1120, false},
                                                      {1121, false},
                                                      {1122, true},
                                                      {1123, true}}) {
    test_seconds = seconds;
    seen += tsan_check_dump_stats(reports ? e.out : nullptr, e) == 1 ? '1' : '0';
    const std::string text = e.run();
    seen += text.find("tsan_stats BEGIN") != text.npos ? 'B' : '-';
    seen += text.find("STAT GLOBAL") != text.npos ? 'G' : '-';
  }
  EXPECT_EQ(seen, "0--0--1BG0--1-G1-G1BG0--");
}
