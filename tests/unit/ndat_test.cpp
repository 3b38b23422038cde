#include <gtest/gtest.h>

#include "support/engine.h"

TEST(ndat, deadlines) {
  engine e;
  e.cfg.max_ndat_pcount = 3;
  e.start();
  const auto send = [&](uint16_t pid, int count) {
    while (count-- > 0)
      e.s.data(pid);
  };
  // Silent until a deadline after it was met; the PMT at 18 arms the check again.
  send(101, 8), send(102, 1), send(101, 6);
  e.s.pmt(100, {.pcr_pid = 101, .es = {{0x1b, 101}, {0x0f, 102}, {0x0f, 103}}});
  send(101, 3), send(103, 3);
  EXPECT_EQ(e.run(), R"((WRN)  FSCN  ALERT PID-NDAT [src] 0:1 pid102 received no data 0:0[5]
ALERT PID-NDAT src 102 0 1 0:0[5]
(WRN)  FSCN  [src] 1 tracks NOT receiving data
(WRN)  FSCN  ALERT PID-NDAT [src] 0:1 pid102 received no data 0:0[8]
ALERT PID-NDAT src 102 0 1 0:0[8]
(WRN)  FSCN  [src] 1 tracks NOT receiving data
(NRM)  FSCN  [src] 2 tracks receiving data
(WRN)  FSCN  ALERT PMT-DIFF [src] track-count: 2/3 pid=100 pcr-pid=101 at 0:M[18]
ALERT PMT-DIFF src 100 2 3 101 0:M[18]
(WRN)  FSCN  ALERT PID-NDAT [src] 0:2 pid103 received no data 0:0[21]
ALERT PID-NDAT src 103 0 2 0:0[21]
(WRN)  FSCN  [src] 1 tracks NOT receiving data
(NRM)  FSCN  [src] 3 tracks receiving data
)");
  EXPECT_EQ(e->pg[0].alert.pid_ndat, 3U);
}

TEST(ndat, final_check) {
  engine e; // no check but this one
  tsan_check_ndat(e);
  EXPECT_EQ(e.run(), "(NRM)  FSCN  [src] 0 tracks receiving data\n");
  e.s.pat({{1, 100}, {2, 200}}), e.s.pmt(100, {.pcr_pid = 101, .es = {{0x0f, 101}}});
  e.s.pmt(200, {.pcr_pid = 201, .es = {{0x0f, 201}}}), e.s.data(201), e.s.null();
  EXPECT_EQ(e.run(), "");
  tsan_check_ndat(e);
  EXPECT_EQ(e.run(), R"((WRN)  FSCN  ALERT PID-NDAT [src] 0:0 pid101 received no data pkt[5]
ALERT PID-NDAT src 101 0 0 pkt[5]
(WRN)  FSCN  [src] 1 tracks NOT receiving data
)");
  // It counts on the program seen last, and leaves the check armed.
  EXPECT_TRUE(e->pg[0].alert.pid_ndat == 0 && e->pg[1].alert.pid_ndat == 1);
  e->cfg.no_rlog = true, e->cfg.access_log_alerts = false;
  e.s.data(201);
  EXPECT_EQ(e.run(), "(WRN)  FSCN  [src] 1 tracks NOT receiving data\n");
  EXPECT_EQ(e->pg[1].alert.pid_ndat, 2U);
}

TEST(ndat, pat_change_arms_without_a_program_at_hand) {
  engine e;
  e.cfg.max_ndat_pcount = 3;
  e.s.pat({{1, 100}}), e.run();
  e->ndat_pcount = 0;
  e.s.pat({{2, 200}}, {.version = 1}), e.run();
  EXPECT_EQ(e->ndat_pcount, 3U);
}
