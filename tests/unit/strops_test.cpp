#include "strops/strops.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <utility>

TEST(strops, sizes) {
  const std::string zeros(62, '0');
  const std::pair<std::string, int64_t> accepted[] = {
      {"9000", 9000},
      {"", 0},
      {" -12.9", -12},
      {"2K", 2048},
      {"2 kB", 2048},
      {"1.5K", 1536},
      {"K", 0},
      {"-0.5m", -524288},
      {"3Mb", 3145728},
      {"1g", 1073741824},
      {"2GB", 2147483648},
      {"9223372036854775808", INT64_MAX},
      {"8589934592G", INT64_MAX},
      {"-9223372036854775808", INT64_MIN},
      {zeros + "1K", 1024},
      {zeros + "01", 1},
  };
  for (const auto &[text, expected] : accepted) {
    int64_t value = 77;
    errno = ERANGE; // of an earlier call
    EXPECT_EQ(a2int64(text.c_str(), &value), 0) << text;
    EXPECT_EQ(value, expected) << text;
  }
  const std::pair<std::string, int> refused[] = {
      {"9223372036854777856", -2},
      {"-8589934593G", -2},
      {zeros + "01K", -3},
      {std::string(400, '9'), -4},
      {"0." + std::string(400, '0') + "1", -4},
      {"2KiB", -5},
      {"2K ", -5},
      {"1e5", -5},
      {"0x10", -5},
      {"inf", -5},
  };
  for (const auto &[text, expected] : refused) {
    int64_t value = 77;
    EXPECT_EQ(a2int64(text.c_str(), &value), expected) << text;
    EXPECT_EQ(value, 77) << text;
  }
  EXPECT_DEATH(a2int64(nullptr, nullptr), "Assertion `text != nullptr' failed\\.");
}
