// Cost of the analyzer's pipeline per packet, on streams held in memory.
//
// Each benchmark feeds one stream again and again. Its packets are laid out so that the continuity
// counters fit where the end meets the start, and items are packets. The last five are hostile
// streams: whatever a packet holds, it takes at most 100 microseconds while its lines go to
// /dev/null, and none longer for what came before it. The dearest are tables that change with every
// packet, for the lines that they print.

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

#include <benchmark/benchmark.h>

#include "log/log.h"
#include "support/ts_builder.h"
#include "tsanalyze/tsan.h"

namespace {

struct bench_settings {
  bool checks = false;
  bool terse = false;
  bool human = true;
  bool traces = false;
};

tsan_config make_settings(const bench_settings &set) {
  tsan_config cfg = {};
  cfg.is_enabled = cfg.cc_track = true;
  strcpy(cfg.source, "bench");
  cfg.max_skip_pkts = SIZE_MAX;
  cfg.cc_max_ms0_ms = 30;
  if (set.checks)
    cfg.max_pcr_delta = cfg.max_pdts_delta = cfg.pcr_freq_ms = 100'000'000;
  cfg.access_log_alerts = set.terse;
  cfg.no_rlog = !set.human;
  if (set.traces)
    tsan_xtrack_opt("all", &cfg);
  return cfg;
}

void run(benchmark::State &state, const ts_stream &stream, const bench_settings &set = {}) {
  FILE *sink = fopen("/dev/null", "w");
  setvbuf(sink, nullptr, _IONBF, 0);
  log_default(g_log, sink);
  log_default(g_access_log, sink);
  const ts_bytes bytes = stream.bytes();
  const tsan_config cfg = make_settings(set);
  tsan_t ctx = tsan_init(nullptr, &cfg, nullptr);
  for (auto _ : state)
    tsan_process_many(ctx, bytes.data(), stream.packets.size(), sizeof(ts_packet));
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * stream.packets.size()));
  tsan_free(ctx);
  log_default(g_log, nullptr);
  log_default(g_access_log, nullptr);
  fclose(sink);
}

uint16_t pid_of(unsigned program, unsigned stream) {
  return static_cast<uint16_t>(1000 + program * 40 + stream);
}

void add_tables(ts_stream &s, unsigned programs, unsigned streams) {
  std::vector<pat_entry> entries;
  for (unsigned p = 0; p < programs; ++p)
    entries.push_back({static_cast<uint16_t>(p + 1), static_cast<uint16_t>(100 + p)});
  s.pat(entries);
  for (unsigned p = 0; p < programs; ++p) {
    pmt_spec pmt = {.program = static_cast<uint16_t>(p + 1), .pcr_pid = pid_of(p, 0)};
    for (unsigned i = 0; i < streams; ++i)
      pmt.es.push_back({static_cast<uint8_t>(i == 0 ? 0x1b : 0x0f), pid_of(p, i)});
    s.pmt(static_cast<uint16_t>(100 + p), pmt);
  }
}

// 1,600 packets of video between one PAT and PMT.
ts_stream video_stream() {
  ts_stream s;
  add_tables(s, 1, 2);
  for (int i = 0; i < 1600; ++i)
    s.data(pid_of(0, 0));
  return s;
}

void video(benchmark::State &state) {
  run(state, video_stream());
}
void video_all_checks(benchmark::State &state) {
  run(state, video_stream(), {.checks = true, .terse = true});
}
void video_traced(benchmark::State &state) {
  log_set_modules(g_log, DEBUG_level);
  run(state, video_stream(), {.traces = true});
  log_set_modules(g_log, NORM_level);
}

// 30 programs of 30 streams, interleaved with 1,000 PIDs that no PMT lists: one after the other, or
// in an order that no branch predictor can learn.
ts_stream multiplex_stream(bool shuffled) {
  ts_stream s;
  add_tables(s, 30, 30);
  std::minstd_rand random(1);
  for (int round = 0; round < 16; ++round) {
    std::vector<uint16_t> pids;
    for (unsigned i = 0; i < 1000; ++i) {
      if (i < 900)
        pids.push_back(pid_of(i % 30, i / 30));
      pids.push_back(static_cast<uint16_t>(4000 + i));
    }
    if (shuffled)
      std::shuffle(pids.begin(), pids.end(), random);
    for (const uint16_t pid : pids)
      s.data(pid);
  }
  return s;
}

void multiplex(benchmark::State &state) {
  run(state, multiplex_stream(false));
}
void multiplex_shuffled(benchmark::State &state) {
  run(state, multiplex_stream(true));
}

void pcr_each_10th(benchmark::State &state) {
  ts_stream s;
  add_tables(s, 1, 2);
  for (unsigned i = 0; i < 1600; ++i) {
    if (i % 10 == 0)
      s.pcr(pid_of(0, 0), 900'000 + i * 100);
    s.data(pid_of(0, 0));
  }
  run(state, s);
}

void tables_each_100th(benchmark::State &state) {
  ts_stream s;
  for (unsigned i = 0; i < 1600; ++i) {
    if (i % 100 == 0)
      add_tables(s, 1, 2);
    s.data(pid_of(0, 0));
  }
  run(state, s);
}

void null_packets(benchmark::State &state) {
  ts_stream s;
  add_tables(s, 1, 2);
  for (int i = 0; i < 1600; ++i)
    s.null();
  run(state, s);
}

void identical_pmts(benchmark::State &state) {
  ts_stream s;
  add_tables(s, 1, 10);
  for (int i = 0; i < 1600; ++i)
    s.packets.push_back(s.packets[1]);
  run(state, s);
}

void every_packet_a_break(benchmark::State &state) {
  ts_stream s;
  add_tables(s, 1, 2);
  for (int i = 0; i < 1600; ++i)
    s.lose(pid_of(0, 0)).data(pid_of(0, 0));
  run(state, s, {.terse = true, .human = false});
}

// Valid headers, random payloads, on PIDs of streams, tables and none.
void random_payloads(benchmark::State &state) {
  ts_stream s;
  add_tables(s, 1, 2);
  std::minstd_rand random(1);
  for (int i = 0; i < 1600; ++i) {
    ts_packet &pkt = s.data(static_cast<uint16_t>(i % 3 == 0 ? 5000 : pid_of(0, i % 3 - 1)));
    for (size_t at = 4; at < pkt.size(); ++at)
      pkt[at] = static_cast<uint8_t>(random());
  }
  run(state, s);
}

void changing_pmts(benchmark::State &state) {
  ts_stream s;
  add_tables(s, 1, 2);
  for (unsigned i = 0; i < 1600; ++i) {
    pmt_spec pmt = {.pcr_pid = pid_of(0, 0), .version = static_cast<uint8_t>(i % 32)};
    for (unsigned n = 0; n < 33; ++n)
      pmt.es.push_back({0x0f, pid_of(0, (i + n) % 64)});
    s.pmt(100, pmt);
  }
  run(state, s, {.terse = true});
}

void changing_pats(benchmark::State &state) {
  ts_stream s;
  add_tables(s, 1, 2);
  for (unsigned i = 0; i < 1600; ++i) {
    std::vector<pat_entry> entries;
    for (unsigned n = 0; n < 15; ++n)
      entries.push_back(
          {static_cast<uint16_t>(n + 1), static_cast<uint16_t>(200 + i % 2 * 15 + n)});
    s.pat(entries, {.version = static_cast<uint8_t>(i % 32)});
  }
  run(state, s, {.terse = true});
}

// A table whose text is longer than what is kept of it: each line too many is warned about.
void overflowing_pmts(benchmark::State &state) {
  ts_stream s;
  add_tables(s, 1, 2);
  ts_bytes vbi = {0x45, 150, 1, 148};
  vbi.resize(152);
  for (unsigned i = 0; i < 1600; ++i)
    s.pmt(100, {.pcr_pid = pid_of(0, 0),
                .es = {{0x1b, pid_of(0, 0), vbi}},
                .version = static_cast<uint8_t>(i % 32)});
  run(state, s, {.terse = true});
}

void random_tables(benchmark::State &state) {
  ts_stream s;
  add_tables(s, 1, 2);
  std::minstd_rand random(1);
  for (int i = 0; i < 1600; ++i) {
    s.packets.push_back(s.packets[1]);
    ts_packet &pkt = s.packets.back();
    for (size_t at = 15; at < pkt.size(); ++at) // behind the PCR_PID
      pkt[at] = static_cast<uint8_t>(random());
  }
  run(state, s, {.terse = true});
}

BENCHMARK(video);
BENCHMARK(video_all_checks);
BENCHMARK(video_traced);
BENCHMARK(multiplex);
BENCHMARK(multiplex_shuffled);
BENCHMARK(pcr_each_10th);
BENCHMARK(tables_each_100th);
BENCHMARK(null_packets);
BENCHMARK(identical_pmts);
BENCHMARK(every_packet_a_break);
BENCHMARK(random_payloads);
BENCHMARK(changing_pmts);
BENCHMARK(changing_pats);
BENCHMARK(overflowing_pmts);
BENCHMARK(random_tables);

} // namespace

BENCHMARK_MAIN();
