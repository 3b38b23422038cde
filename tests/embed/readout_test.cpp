// Records of the read-out across versions of the library, and findings that a file cannot bring.
#include <cerrno>

#include <gtest/gtest.h>

#include "support/engine.h"
#include "tsanalyze/readout.h"

namespace {

struct heard {
  tsan_alert last[TSAN_ALERT_KINDS] = {};
  tsan_readout readout = {sizeof readout, this, on_alert, nullptr, false};

  static void on_alert(void *opaque, const tsan_alert *alert) {
    static_cast<heard *>(opaque)->last[alert->kind] = *alert;
  }
};

} // namespace

TEST(readout, tells_how_a_run_ends) {
  engine e;
  heard h;
  e.cfg.max_skip_pkts = 2;
  tsan_set_readout(e, &h.readout);
  tsan_alert_lostsync(e);
  e.s.null()[0] = 0x48;
  e.s.null();
  e.run();
  EXPECT_EQ(h.last[TSAN_LOST_SYNC].count, 1u);
  EXPECT_EQ(h.last[TSAN_OUT_OF_SYNC].pkt_idx, 1u);
  EXPECT_EQ(h.last[TSAN_IDLE].pkt_idx, 2u);
}

TEST(readout, records_are_as_long_as_the_caller_knows_them) {
  engine e;
  heard h;
  h.readout.size += 1;
  EXPECT_EQ(tsan_set_readout(e, &h.readout), EINVAL);
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
  tsan_stream_stats stream = {};
  stream.size = sizeof stream;
  EXPECT_EQ(tsan_get_stream_stats(e, 0, 1, &stream), 0);
  EXPECT_EQ(tsan_get_stream_stats(e, 0, 2, &stream), EINVAL);
  EXPECT_EQ(tsan_get_stream_stats(e, 1, 0, &stream), EINVAL);
}
