// Texts and limits that no stream reaches.
#include <gtest/gtest.h>

#include "meta/app_info.h"
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
