#include <gtest/gtest.h>

#include "support/engine.h"

namespace {

std::vector<pat_entry> many(uint16_t first_pid, size_t count) {
  std::vector<pat_entry> list(count);
  for (size_t i = 0; i < count; ++i)
    list[i].pid = static_cast<uint16_t>(first_pid + i);
  return list;
}

} // namespace

TEST(pat, sections_are_gathered) {
  engine e(INFO_level);
  e.s.pat({{0, 16}, {1, 100}}, {.last_section = 1}), e.s.repeat();
  e.s.pat({{2, 200}, {3, 300}}, {.section = 1, .last_section = 1});
  EXPECT_EQ(e.run(), R"((INF)  FSCN  [src] using PAT (pid0) at PAT[1]
(INF)  FSCN  [src] using PAT (pid0) at PAT[2]
(INF)  FSCN  [src] using PAT (pid0) at PAT[3]
(INF)  FSCN  [src] PRG[0] pmt[0] pid=16 at PAT[3]
(INF)  FSCN  [src] PRG[1] pmt[1] pid=100 at PAT[3]
(INF)  FSCN  [src] PRG[2] pmt[0] pid=16 at PAT[3]
(INF)  FSCN  [src] PRG[3] pmt[1] pid=100 at PAT[3]
)");
}

TEST(pat, changes) {
  engine e;
  e.cfg.trk.pat_diff = true;
  e.s.pat({{0, 100}, {2, 200}}), e.s.repeat(), e.s.pat({{0, 100}, {2, 200}}, {.version = 1});
  e.s.pat({{0, 100}, {4, 400}}, {.version = 2, .current = false}), e.s.repeat();
  EXPECT_EQ(e.run(), R"((WRN)  FSCN  [src] pid400 ADDED in new PAT
(WRN)  FSCN  [src] pid200 MISSING in new PAT
(WRN)  FSCN  ALERT PAT-DIFF [src] PMTs added/deleted: 1/1 progs=2 at PAT[4]
new PAT tsid=1 version=0
  * NIT pid=100
  * program number=2 pid=200
end PAT
new PAT tsid=1 version=2 (next)
  * NIT pid=100
  * program number=4 pid=400
end PAT
ALERT PAT-DIFF src 0 2 1 1 PAT[4]
)");
  e->cfg.no_rlog = true, e->cfg.trk.pat_diff = false, g_mod_ll[0] = ERR_level;
  e.s.pat({{1, 100}, {2, 0}}, {.version = 3});   // PID 0 passes for one found again
  e.s.pat({{1, 100}, {2, 100}}, {.version = 4}); // the second one is new
  e.s.pat({}, {.version = 5});
  EXPECT_EQ(e.run(), "ALERT PAT-DIFF src 0 1 0 1 PAT[6]\nALERT PAT-DIFF src 0 2 1 0 PAT[7]\n"
                     "ALERT PAT-DIFF src 0 0 0 2 PAT[8]\n");
  EXPECT_TRUE(e->gac.pat_diff == 4 && e->nprogs == 0);
  g_mod_ll[0] = INFO_level;
  e.s.pat({{7, 700}}, {.version = 6});
  EXPECT_EQ(e.run(), "(INF)  FSCN  [src] using PAT (pid0) at PAT[9]\n"
                     "(INF)  FSCN  [src] PRG[0] pmt[0] pid=700 at PAT[9]\n");
}

TEST(pat, assertions) {
  const struct {
    std::vector<pat_entry> first, second;
    const char *assertion;
  } cases[] = {{{}, {}, "tc->nprogs"},
               {{{0, 0}}, {}, "tc->pmt_pid[tc->nprogs]"},
               {many(100, 31), many(100, 32), "tc->nprogs < MAX_PMTS"},
               {many(100, 32), many(100, 31), ""},
               {many(100, 31), many(200, 31), ""}}; // 62 for a while
  for (const auto &c : cases) {
    engine e;
    e.s.pat(c.first), e.s.pat(c.second, {.version = 1});
    EXPECT_EQ(e.assertion(), c.assertion);
  }
  engine e;
  e.s.pat({});
  EXPECT_DEATH(e.run(), "^unit_tests: vantor/tsanalyze/pat\\.cpp:[0-9]+: process_PAT: "
                        "Assertion `tc->nprogs' failed\\.\n$");
}
