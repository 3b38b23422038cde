// Texts, averages and limits that no stream reaches.
#include <gtest/gtest.h>

#include "meta/app_info.h"
#include "misc/aval.h"
#include "misc/ctxt.h"
#include "misc/timestr.h"
#include "support/engine.h"
#include "tsanalyze/streams.h"

TEST(app_info, first_text_that_fits_is_kept) {
  EXPECT_STREQ(get_custom_app_info("korva", std::string(250, 'x').c_str(), nullptr), "#error#");
  EXPECT_STREQ(get_app_info("unknown", nullptr), "#error#");
  const std::string text = get_custom_app_info("korva", "tool", "0");
  EXPECT_EQ(text, "korva (tool) 0.1-10.2 (nuvreck) 0; built on 2018-09-24");
  EXPECT_EQ(get_app_info("korva", "1"), text);
  EXPECT_STREQ(get_app_tag(std::string(120, 'x').c_str()), "#error#");
  EXPECT_STREQ(get_app_tag("korva"), "korva/0.1-10.2 (nuvreck)");
  EXPECT_STREQ(get_app_tag("other"), "korva/0.1-10.2 (nuvreck)");
}

TEST(aval, sample_reaches_the_global_extremes_with_the_next_one) {
  aggr_val av = {};
  inc_aval(&av, 7);
  reset_aval(&av);
  inc_aval(&av, 100);
  EXPECT_TRUE(av.min == 100 && av.max == 100 && av.g_min == 7 && av.g_max == 7);
  inc_aval(&av, 1);
  engine e;
  dump_aval(e.out, "gap", &av);
  EXPECT_EQ(e.run(), "gap:\t\tlocal-avg  = 50.50 (V=101/N=2) min(V)/max(V)=1/100, "
                     "global-avg = 36.00 (V=108/N=3) min(V)/max(V)=1/100\n");
}

TEST(timestr, is_cut_and_asserts_its_room) {
  char text[14] = {};
  ms2timestr(3'723'004, text, 14);
  EXPECT_STREQ(text, "01:02:03.004");
  ms2timestr(90'000'000, text, 13); // one character fewer than asked for
  EXPECT_STREQ(text, "25:00:00.00");
  EXPECT_DEATH(ms2timestr(0, text, 12),
               "^unit_tests: vantor/misc/timestr\\.cpp:[0-9]+: ms2timestr: "
               "Assertion `n < \\(ssize_t\\)slen' failed\\.\n$");
}

TEST(ctxt, is_cut_where_the_buffer_ends) {
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
  EXPECT_TRUE(cmp_ctxt(&text, &closed) != 0 && cmp_ctxt(&closed, &text) != 0);
  EXPECT_EQ(cmp_ctxt(&empty, &closed), 0);
  close_ctxt(&empty);
  close_ctxt(&text);
}

TEST(streams, are_64_in_a_program) {
  engine e;
  const dgram_info place = {0, -1, false, true, &e->pg[0], nullptr};
  e->dat = &place;
  for (uint16_t pid = 1; pid <= 65; ++pid)
    EXPECT_EQ(add_stream(e, pid, 3), pid <= 64 ? pid - 1 : -1);
  EXPECT_EQ(e.run(), "(ERR)  FSCN  add_stream: [src] too many streams: 64\n");
}

TEST(tsan_free, takes_an_empty_source_tag_for_the_mark_of_a_freed_context) {
  engine e;
  tsan_t tc = tsan_init(std::string(70, 'x').c_str(), &e.cfg, nullptr);
  EXPECT_EQ(tc->cfg.source, std::string(63, 'x'));
  tc->cfg.source[0] = '\0';
  tsan_free(tc);
  EXPECT_EQ(e.run().find("(WRN)  FSCN  tsan_free: avoiding double-freeing of tsan[] (0x"), 0U);
  tc->cfg.source[0] = 'x';
  tsan_free(tc);
}
