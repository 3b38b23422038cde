// Records of the read-out across versions of the library.
#include <cerrno>

#include <gtest/gtest.h>

#include "support/engine.h"
#include "tsanalyze/readout.h"

TEST(readout, records_are_as_long_as_the_caller_knows_them) {
  engine e;
  const tsan_readout readout = {sizeof readout + 1, nullptr, nullptr, nullptr, false};
  EXPECT_EQ(tsan_set_readout(e, &readout), EINVAL);
  e.start().s.data(102);
  e.run();
  tsan_stats stats = {};
  stats.analyzed = 77;
  stats.size = offsetof(tsan_stats, analyzed); // an earlier version's
  EXPECT_EQ(tsan_get_stats(e, &stats), 0);
  EXPECT_EQ(std::tie(stats.processed, stats.analyzed), std::make_tuple(3u, 77u));
  stats.size = sizeof stats;
  EXPECT_EQ(tsan_get_stats(e, &stats), 0);
  EXPECT_EQ(std::tie(stats.processed, stats.analyzed), std::make_tuple(3u, 1u));
  stats.size = sizeof stats + 1;
  EXPECT_EQ(tsan_get_stats(e, &stats), EINVAL);
  tsan_program_stats program = {};
  program.size = sizeof program;
  EXPECT_EQ(tsan_get_program_stats(e, 0, &program), 0);
  EXPECT_EQ(tsan_get_program_stats(e, 1, &program), EINVAL);
  tsan_stream_stats stream = {};
  stream.size = sizeof stream;
  EXPECT_EQ(tsan_get_stream_stats(e, 0, 1, &stream), 0);
  EXPECT_EQ(tsan_get_stream_stats(e, 0, 2, &stream), EINVAL);
  EXPECT_EQ(tsan_get_stream_stats(e, 1, 0, &stream), EINVAL);
}
