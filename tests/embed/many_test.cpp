// Packets handed over together.
#include <csignal>

#include <gtest/gtest.h>

#include "support/engine.h"
#include "tsanalyze/readout.h"

namespace {

volatile sig_atomic_t stop;

} // namespace

TEST(many, end_at_a_flag_and_before_a_packet_without_sync_byte) {
  engine e;
  e.s.pat({{1, 100}});
  e.s.pmt(100, {.pcr_pid = 101, .es = {{0x1b, 101}}});
  for (int i = 2; i < 8; ++i)
    e.s.lose(101, i == 4).data(101);
  e.s.packets[6][0] = 0x46;
  enum : size_t { STRIDE = 204 };
  ts_bytes bytes;
  for (const ts_packet &pkt : e.s.packets) {
    bytes.insert(bytes.end(), pkt.begin(), pkt.end());
    bytes.resize(bytes.size() + STRIDE - pkt.size());
  }

  const auto stop_at_alert = [](void *, const tsan_alert *) { stop = 1; };
  const tsan_readout readout = {sizeof readout, nullptr, stop_at_alert, nullptr, false};
  tsan_set_readout(e, &readout);
  tsan_stop_on(e, &stop);
  const auto hand_over = [&](size_t from) {
    const tsan_many done = tsan_process_many(e, &bytes[from * STRIDE], 8 - from, STRIDE);
    return std::make_tuple(done.count, done.code, tsan_get_pidx(e));
  };
  EXPECT_EQ(hand_over(0), std::make_tuple(5u, 0, 5u));
  EXPECT_EQ(hand_over(5), std::make_tuple(0u, 0, 5u));
  tsan_stop_on(e, nullptr);
  EXPECT_EQ(hand_over(5), std::make_tuple(1u, -1, 6u));
  EXPECT_EQ(hand_over(7), std::make_tuple(1u, 0, 7u));
}
