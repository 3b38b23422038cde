#include <gtest/gtest.h>

#include "misc/ctxt.h"
#include "support/engine.h"
#include "tsanalyze/streams.h"

TEST(pmt, is_used_again_until_it_brings_a_stream) {
  engine e;
  e.start({.pcr_pid = 101, .es = {{5, 101}}}).start({.pcr_pid = 101, .es = {{6, 101}}});
  EXPECT_EQ(e->pg[0].nstreams, 1U);
  e->cfg.trk.pmt_diff = true;
  // The text to compare with is that of the first PMT, so this one counts as changed.
  e.s.pmt(100, {.pcr_pid = 101, .es = {{6, 101}}});
  EXPECT_EQ(e.run(),
            R"((WRN)  FSCN  ALERT PMT-DIFF [src] track-count: 1/1 pid=100 pcr-pid=101 at 0:M[5]
Older PMT:
new PMT program=1 version=0 pcrpid=101
  * ES pid=101 streamtype=0x05 streamtype_txt="13818-1 private sections"
end PMT
New PMT:
new PMT program=1 version=0 pcrpid=101
  * ES pid=101 streamtype=0x06 streamtype_txt="13818-1 PES private data"
end PMT
ALERT PMT-DIFF src 100 1 1 101 0:M[5]
Using PMT:
new PMT program=1 version=0 pcrpid=101
  * ES pid=101 streamtype=0x06 streamtype_txt="13818-1 PES private data"
end PMT
)");
  g_mod_ll[0] = INFO_level;
  e.s.pmt(100, {.pcr_pid = 101, .es = {{6, 101}}});
  EXPECT_EQ(e.run(), "(INF)  FSCN  cmp_PMT: ok pid=100 1/1\n");
}

TEST(pmt, change_carries_state_over) {
  engine e;
  e.cfg.max_pdts_delta = 100;
  e.start({.pcr_pid = 101, .es = {{0x1b, 101}, {0x0f, 102}, {6, 103}}});
  e.s.pes(101, {.pts = 900'000}), e.s.pes(102, {.pts = 900'000}), e.s.data(102);
  e.s.data(103), e.s.data(103), e.s.data(103);
  e.s.pmt(100, {.pcr_pid = 101, .es = {{5, 90}, {0x0f, 104}, {0x1b, 101}, {0x0f, 103}}});
  EXPECT_EQ(e.run(),
            R"((WRN)  FSCN  ALERT PMT-DIFF [src] track-count: 3/4 pid=100 pcr-pid=101 at 0:M[9]
ALERT PMT-DIFF src 100 3 4 101 0:M[9]
(WRN)  FSCN  add_stream: 1+ video: ref_idx already set (to 0)
)");
  const program_info &pg = e->pg[0];
  EXPECT_TRUE(pg.nstreams == 3 && pg.ref_idx == 0 && pg.pcr_idx == 1 && pg.alert.pmt_diff == 1);
  std::string streams; // the counters of a position stay with a stream that is new there
  for (const stream_info &stm : std::span(pg.stm, pg.nstreams))
    streams += stm.stype + std::to_string(stm.pid) + " " + std::to_string(stm.pcount) + "/" +
               std::to_string(stm.acount) + " pts=" + std::to_string(stm.last_pts) +
               " cc=" + std::to_string(stm.cc.value) + "\n";
  EXPECT_EQ(streams, "A104 1/1 pts=0 cc=-1\nV101 1/1 pts=900000 cc=0\nA103 3/3 pts=0 cc=2\n");
}

TEST(pmt, limits) {
  engine e;
  const dgram_info place = {0, -1, false, true, &e->pg[0], nullptr};
  e->dat = &place;
  for (uint16_t pid = 1; pid <= 65; ++pid)
    EXPECT_EQ(add_stream(e, pid, 3), pid <= 64 ? pid - 1 : -1);
  EXPECT_EQ(e.run(), "(ERR)  FSCN  add_stream: [src] too many streams: 64\n");
  e.s.pat({{1, 100}}), e.s.pmt(100, {.pcr_pid = 0});
  EXPECT_EQ(e.assertion(), "prog(tc)->pcr_pid");
}

TEST(pmt, text_is_cut_where_the_buffer_ends) {
  engine e;
  ctxt_spec text = {}, empty = {}, closed = {};
  add_ctxt_line(&closed, "dropped");
  ASSERT_TRUE(open_ctxt(&text, 40) == 0 && open_ctxt(&empty, 40) == 0);
  for (int i = 0; i < 3; ++i)
    add_ctxt_line(&text, "%d bcdefghijklmnopqrst", i);
  dump_ctxt(e.out, "title", &text);
  dump_ctxt(e.out, "title", &empty);
  EXPECT_EQ(e.run(), "(WRN)  FSCN  add_ctxt_line: PMT buffer may overflow, -2 bytes left\n"
                     "(WRN)  FSCN  add_ctxt_line: PMT buffer may overflow, -1 bytes left\n"
                     "title\n0 bcdefghijklmnopqrst\n1 bcdefghijklmn" +
                         std::string("\0\n", 2));
  EXPECT_TRUE(cmp_ctxt(&text, &closed) != 0 && cmp_ctxt(&empty, &closed) == 0);
  close_ctxt(&empty);
  close_ctxt(&text);
}
