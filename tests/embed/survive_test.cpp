// Streams that end the process by default, and what a context makes of them that survives.
#include <latch>
#include <thread>

#include <gtest/gtest.h>

#include "support/engine.h"

namespace {

struct deadly {
  const char *name;
  ts_stream s;
  size_t programs; // that the report still has
};

std::vector<pat_entry> programs(uint16_t count) {
  std::vector<pat_entry> entries;
  for (uint16_t i = 0; i < count; ++i)
    entries.push_back({static_cast<uint16_t>(i + 1), static_cast<uint16_t>(100 + i)});
  return entries;
}

std::vector<deadly> make_deadly() {
  std::vector<deadly> all(7);
  auto next = [&all, i = 0U](const char *name, size_t left) mutable -> ts_stream & {
    all[i] = {name, {}, left};
    return all[i++].s;
  };
  next("PID 0", 1).pat({{1, 100}, {2, 0}});
  next("no program", 0).pat({});
  ts_stream *s = &next("no program, after one that emptied the list", 0);
  s->pat({{1, 100}});
  s->pat({}, {.version = 1});
  s->pat({}, {.version = 2});
  s = &next("31 programs and one more", 31);
  s->pat(programs(31));
  s->pat({{99, 99}}, {.version = 1, .section = 0, .last_section = 1});
  s->pat(programs(31), {.version = 1, .section = 1, .last_section = 1});
  s = &next("32 programs twice", 32);
  s->pat(programs(32));
  s->pat(programs(32), {.version = 1});
  s = &next("PCR_PID 0", 1);
  s->pat({{1, 100}});
  s->pmt(100, {.pcr_pid = 0, .es = {{0x1b, 101}}});
  s = &next("PCR_PID 0 in a later PMT", 1);
  s->pat({{1, 100}});
  s->pmt(100, {.pcr_pid = 101, .es = {{0x1b, 101}, {0x0f, 102}}});
  s->data(101);
  s->pmt(100, {.pcr_pid = 0, .es = {{0x1b, 101}}, .version = 1});
  return all;
}

void outlive(const deadly &stream, std::latch *start) {
  tsan_config cfg;
  tsan_default_config(&cfg);
  tsan_t ctx = tsan_init(stream.name, &cfg, nullptr);
  tsan_survive(ctx, true);
  const ts_bytes bytes = stream.s.bytes();
  const size_t count = bytes.size() / 188;
  start->arrive_and_wait();
  for (int run = 0; run < 3; ++run, tsan_reset(ctx)) {
    const tsan_many done = tsan_process_many(ctx, bytes.data(), count, 188);
    EXPECT_EQ(std::tie(done.count, done.code), std::make_tuple(count - 1, TSAN_BAD_TABLE));
    EXPECT_EQ(tsan_process(ctx, bytes.data()), TSAN_BAD_TABLE);
    tsan_check_ndat(ctx);
    tsan_stats stats = {};
    stats.size = sizeof stats;
    tsan_get_stats(ctx, &stats);
    EXPECT_EQ(std::tie(stats.processed, stats.programs), std::make_tuple(count, stream.programs))
        << stream.name;
    if (stats.analyzed != 0) {
      EXPECT_EQ(ctx->pg[0].nstreams, 2U);
    }
  }
  EXPECT_EQ(tsan_process(ctx, bytes.data()), count == 1 ? TSAN_BAD_TABLE : TSAN_OK);
  tsan_free(ctx);
}

} // namespace

TEST(survive, what_ends_the_process_in_32_threads) {
  const std::vector<deadly> all = make_deadly();
  std::latch start(32);
  std::vector<std::jthread> threads;
  for (size_t i = 0; i < 32; ++i)
    threads.emplace_back(outlive, std::cref(all[i % all.size()]), &start);
}

TEST(survive, a_clock_that_cannot_be_read) {
  engine e;
  tsan_survive(e, true);
  test_now.tv_sec = -1;
  EXPECT_EQ(e.start().rc, TSAN_NO_CLOCK);
  EXPECT_EQ(e->last_pkt_idx, 1U);
  test_now.tv_sec = 100;
  tsan_reset(e);
  EXPECT_EQ(e.start().rc, TSAN_OK);
}

TEST(survive, is_not_what_a_callback_stops) {
  engine e;
  const auto stop = [](void *ctx, const tsan_alert *) { tsan_stop(static_cast<tsan_t>(ctx)); };
  const tsan_readout readout = {sizeof readout, static_cast<tsan_ctx *>(e), stop, nullptr, false};
  tsan_set_readout(e, &readout);
  e.start().s.data(101);
  e.s.lose(101).data(101);
  e.run();
  EXPECT_EQ(e.rc, TSAN_STOPPED);
  EXPECT_EQ(e->pg[0].alert.cc_break, 1U);
}
