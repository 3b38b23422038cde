#include "meta/app_info.h"

#include <gtest/gtest.h>

#include <string>

TEST(app_info, first_text_that_fits_is_kept) {
  EXPECT_STREQ(get_custom_app_info("korva", std::string(250, 'x').c_str(), nullptr), "#error#");
  EXPECT_STREQ(get_app_info("unknown", nullptr), "#error#");
  const std::string text = get_custom_app_info("korva", "MPEG-TS file analyzer", nullptr);
  EXPECT_TRUE(testing::internal::RE::FullMatch(text,
                                               "korva \\(MPEG-TS file analyzer\\) 0\\.1-10\\.2 "
                                               "\\(nuvreck\\) [0-9a-f]{8}; "
                                               "built on 2018-09-24"))
      << text;
  EXPECT_EQ(get_custom_app_info("other", "tool", "0"), text);
  EXPECT_EQ(get_app_info("korva", "1"), text);
}

TEST(app_info, tags) {
  EXPECT_STREQ(get_app_tag(std::string(120, 'x').c_str()), "#error#");
  EXPECT_STREQ(get_app_tag("korva"), "korva/0.1-10.2 (nuvreck)");
  EXPECT_STREQ(get_app_tag("other"), "korva/0.1-10.2 (nuvreck)");

  char block[128] = "";
  FILE *out = fmemopen(block, sizeof block, "w");
  dump_build_info(out);
  fclose(out);
  EXPECT_STREQ(block, "----\nlibtlm/1.5-6.12 (26311d7f) @1514991516 [-ggdb]\n----\n\n");
}
