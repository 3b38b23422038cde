// Contexts in eight threads at once: each source gets what it gets alone, and neither lines nor
// blocks (report, tables) of one are torn by another's.
#include <algorithm>
#include <latch>
#include <span>
#include <thread>

#include <gtest/gtest.h>

#include "support/engine.h"

namespace {

// A program with PIDs and damage of its own, whose PAT and PMT change again and again.
ts_stream make_capture(uint16_t source) {
  const auto pid = [&](int i) { return static_cast<uint16_t>(100 + 10 * source + i); };
  ts_stream s;
  uint64_t clock = 0;
  for (uint8_t version = 0; version < 30; ++version) {
    s.pat({{1, pid(0)}, {2, pid(3 + version)}}, {.version = version});
    s.pmt(pid(0), {.pcr_pid = pid(1), .es = {{0x1b, pid(1)}, {0x0f, pid(2)}}, .version = version});
    for (int i = 0; i < 5 + source; ++i) {
      s.pcr(pid(1), clock += 3600);
      s.pes(pid(1), {.pts = clock + 900});
      s.lose(pid(2), i % (source + 2) == 0).pes(pid(2), {.pts = clock + 900u * source});
    }
  }
  return s;
}

void analyze(uint16_t source, FILE *report, std::latch *start) {
  tsan_config cfg;
  tsan_default_config(&cfg);
  cfg.access_log_alerts = true;
  cfg.max_pdts_delta = cfg.max_pcr_delta = cfg.pcr_freq_ms = 1;
  cfg.trk.cc_track = cfg.trk.pmt_diff = cfg.trk.pat_diff = true;
  tsan_t ctx = tsan_init(("src" + std::to_string(source)).c_str(), &cfg, nullptr);
  const ts_stream capture = make_capture(source);
  start->arrive_and_wait();
  for (const ts_packet &pkt : capture.packets) {
    tsan_process(ctx, pkt.data());
    if (tsan_get_pidx(ctx) % 50 == 0) {
      tsan_alog_stats(ctx);
      tsan_dump_stats(report, ctx);
    }
  }
  tsan_check_ndat(ctx);
  tsan_free(ctx);
}

// The lines of a stream without their time stamps, each with the lines of the block that it heads.
void read_texts(FILE *stream, std::vector<std::string> &out) {
  rewind(stream);
  for (char buf[4096]; fgets(buf, sizeof buf, stream);) {
    const std::string line = buf;
    const size_t zone = line.find(" UTC ");
    if (zone == 26 || line.ends_with("PMT:\n") || line.starts_with("tsan_stats BEGIN") ||
        out.empty())
      out.emplace_back();
    out.back() += line.substr(zone == 26 ? zone : 0);
  }
  fclose(stream);
}

// What both logs hold after the sources were analyzed at once. Each log mirrors into the other's
// stream, and the reports go there too.
std::vector<std::string> run(std::span<const uint16_t> sources) {
  FILE *human = tmpfile(), *terse = tmpfile();
  log_default(g_log, human);
  log_mirror(g_log, terse);
  log_default(g_access_log, terse);
  log_mirror(g_access_log, human);
  log_set_pid(g_access_log, 42);
  std::latch start(std::ssize(sources));
  std::vector<std::jthread> threads;
  for (const uint16_t source : sources)
    threads.emplace_back(analyze, source, source % 2 == 0 ? human : terse, &start);
  threads.clear();
  std::vector<std::string> out;
  read_texts(human, out);
  read_texts(terse, out);
  *g_log = *g_access_log = {};
  return out;
}

} // namespace

TEST(threads, every_source_gets_what_it_gets_alone) {
  test_now = {100, 0};
  g_mod_ll[0] = INFO_level;
  const uint16_t sources[] = {0, 1, 2, 3, 4, 5, 6, 7};
  std::vector<std::string> together = run(sources), alone;
  for (const uint16_t source : sources)
    std::ranges::copy(run({&source, 1}), std::back_inserter(alone));
  g_mod_ll[0] = NORM_level;
  EXPECT_GT(alone.size(), 2 * 500 * std::size(sources));
  std::ranges::sort(together);
  std::ranges::sort(alone);
  EXPECT_EQ(together, alone);
}
