// What ends the process by default, and what a context makes of it that survives.
#include <latch>
#include <thread>

#include <gtest/gtest.h>

#include "support/engine.h"

namespace {

std::vector<pat_entry> programs(uint16_t count) {
  std::vector<pat_entry> entries;
  for (uint16_t i = 0; i < count; ++i)
    entries.push_back({static_cast<uint16_t>(i + 1), static_cast<uint16_t>(100 + i)});
  return entries;
}

// Each ends with its last packet; the programs are those that a report still has.
struct {
  ts_stream s;
  size_t programs;
} deadly[] = {{{}, 1}, {{}, 0}, {{}, 0}, {{}, 32}, {{}, 1}};

void make_deadly() {
  deadly[0].s.pat({{1, 100}, {2, 0}});
  deadly[1].s.pat({});
  deadly[2].s.pat({{1, 100}});
  deadly[2].s.pat({}, {.version = 1});
  deadly[2].s.pat({}, {.version = 2});
  deadly[3].s.pat(programs(32));
  deadly[3].s.pat(programs(32), {.version = 1});
  ts_stream &s = deadly[4].s;
  s.pat({{1, 100}});
  s.pmt(100, {.pcr_pid = 101, .es = {{0x1b, 101}, {0x0f, 102}}});
  s.data(101);
  s.pmt(100, {.pcr_pid = 0, .es = {{0x1b, 101}}, .version = 1});
}

void outlive(size_t number, std::latch *start) {
  const auto &stream = deadly[number % std::size(deadly)];
  tsan_config cfg;
  tsan_default_config(&cfg);
  tsan_t ctx = tsan_init("deadly", &cfg, nullptr);
  tsan_survive(ctx, true);
  const ts_bytes bytes = stream.s.bytes();
  const size_t count = bytes.size() / 188;
  start->arrive_and_wait();
  for (int run = 0; run < 3; ++run, tsan_reset(ctx)) {
    const tsan_many done = tsan_process_many(ctx, bytes.data(), count, 188);
    EXPECT_EQ(std::tie(done.count, done.code), std::make_tuple(count - 1, TSAN_BAD_TABLE));
    EXPECT_EQ(tsan_process(ctx, bytes.data()), TSAN_BAD_TABLE);
    tsan_check_ndat(ctx);
    EXPECT_EQ(std::tie(ctx->ptotal, ctx->nprogs), std::tie(count, stream.programs));
    EXPECT_EQ(ctx->pg[0].nstreams, ctx->atotal != 0 ? 2U : 0U);
  }
  tsan_free(ctx);
}

} // namespace

TEST(survive, tables_in_32_threads) {
  make_deadly();
  std::latch start(32);
  std::vector<std::jthread> threads;
  for (size_t i = 0; i < 32; ++i)
    threads.emplace_back(outlive, i, &start);
}

TEST(survive, a_clock_that_cannot_be_read_and_a_callback_that_stops) {
  engine e;
  tsan_survive(e, true);
  test_now.tv_sec = -1;
  EXPECT_EQ(e.start().rc, TSAN_NO_CLOCK);
  test_now.tv_sec = 100;
  const auto stop = [](void *ctx, const tsan_alert *) { tsan_stop(static_cast<tsan_t>(ctx)); };
  const tsan_readout readout = {sizeof readout, static_cast<tsan_ctx *>(e), stop, nullptr, false};
  tsan_set_readout(e, &readout);
  tsan_reset(e);
  EXPECT_EQ(e.start().rc, TSAN_OK);
  e.s.data(101);
  e.s.lose(101).data(101);
  e.run();
  EXPECT_STREQ(tsan_result_name(e.rc), "STOPPED");

  tsan_reset(e); // the packet that is stopped at also has the table
  e.start().s.pmt(100, {.pcr_pid = 0, .es = {{0x1b, 101}}, .version = 1});
  e.run();
  EXPECT_EQ(std::tie(e.rc, e->pg[0].nstreams), std::make_tuple(TSAN_STOPPED, 2U));
  tsan_reset(e); // or is the one at which it would give up
  e.config().max_skip_pkts = 1;
  const ts_packet idle = ts_stream().data(101);
  EXPECT_EQ(tsan_process_many(e, idle.data(), 1, 188).code, TSAN_STOPPED);
}
