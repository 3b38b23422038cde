#include "config/settings.h"

#include <gtest/gtest.h>

#include <string>

#include "log/log.h"

namespace {

struct config_file {
  config_t cfg;

  explicit config_file(const std::string &text) {
    config_init(&cfg);
    EXPECT_EQ(config_read_string(&cfg, text.c_str()), CONFIG_TRUE) << text;
  }
  ~config_file() { config_destroy(&cfg); }
  const config_setting_t *root() const { return config_root_setting(&cfg); }
};

} // namespace

TEST(settings, strings) {
  const struct {
    const char *text;
    const char *dflt;
    const char *expected; // null: refused
  } cases[] = {
      {"s = \"abc\";", "dflt", "abc"},
      {"s = \"1234567\";", "dflt", "1234567"},
      {"s = \"\";", "dflt", ""},
      {"s = 12;", "dflt", "dflt"},
      {"", "default", "default"},
      {"", "long default", "long de"},
      {"", "", ""},
      {"", nullptr, ""},
      {"s = \"12345678\";", "", nullptr},
  };
  log_default(g_log, stderr);
  for (const auto &c : cases) {
    char dst[9] = "former!"; // of an earlier settings file
    testing::internal::CaptureStderr();
    const int rc = load_config_setting_str(config_file(c.text).root(), "s", dst, 8, c.dflt);
    const std::string report = testing::internal::GetCapturedStderr();
    if (c.expected != nullptr) {
      std::string expected = c.expected;
      expected.resize(sizeof dst);
      EXPECT_EQ(rc, 0);
      EXPECT_EQ(std::string(dst, sizeof dst), expected);
      EXPECT_EQ(report, "");
    } else {
      EXPECT_EQ(rc, -1);
      EXPECT_STREQ(dst, "former!");
      EXPECT_TRUE(report.ends_with("(ERR)  load_config_setting_str: s value is too long (8), "
                                   "max = 8 characters.\n"));
    }
  }
}

TEST(settings, sizes) {
  const struct {
    const char *text;
    int result;
    size_t value;
  } cases[] = {
      {"n = 9000;", 0, 9000},
      {"n = 9000L;", 0, 9000},
      {"n = \"9000\";", 0, 9000},
      {"n = \"2 KB\";", 0, 2048},
      {"n = 0;", 0, 0},
      {"n = \"\";", 0, 55},
      {"", 0, 55},
      {"n = 1.5;", 0, 55},
      {"n = true;", 0, 55},
      {"n = \"2KiB\";", -5, 77},
      {"n = \"00000000000000000000000000000001\";", -1, 77},
  };
  log_default(g_log, stderr);
  for (const auto &c : cases) {
    size_t value = 77;
    testing::internal::CaptureStderr();
    EXPECT_EQ(load_config_setting_size(config_file(c.text).root(), "n", &value, 55), c.result)
        << c.text;
    EXPECT_EQ(testing::internal::GetCapturedStderr().empty(), c.result != -1);
    EXPECT_EQ(value, c.value) << c.text;
  }
}
