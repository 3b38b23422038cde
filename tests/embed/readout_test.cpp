// The read-out tells what the logs and the report tell, and changes neither.
#include <cerrno>
#include <cstdlib>
#include <fstream>

#include <gtest/gtest.h>

#include "support/engine.h"
#include "tsanalyze/readout.h"

namespace {

struct heard {
  uint64_t alerts[TSAN_ALERT_KINDS] = {}, samples[TSAN_SAMPLE_KINDS] = {};
  uint64_t total_ms[TSAN_SAMPLE_KINDS] = {};
  tsan_alert last[TSAN_ALERT_KINDS] = {};
  tsan_readout readout = {sizeof readout, this, on_alert, on_sample, false};

  static void on_alert(void *opaque, const tsan_alert *alert) {
    auto *h = static_cast<heard *>(opaque);
    ++h->alerts[alert->kind];
    h->last[alert->kind] = *alert;
  }
  static void on_sample(void *opaque, const tsan_sample *sample) {
    auto *h = static_cast<heard *>(opaque);
    ++h->samples[sample->kind];
    h->total_ms[sample->kind] += sample->ms;
  }
};

// All that is written about the damaged sample, the report included; with limits or without.
std::string analyze(engine &e, const tsan_readout *readout, bool limits) {
  e.cfg.max_pdts_delta = limits ? 180 : 0;
  e.cfg.max_pcr_delta = limits ? 840 : 0;
  e.cfg.pcr_freq_ms = limits ? 79 : 0;
  EXPECT_EQ(tsan_set_readout(e, readout), 0);
  std::ifstream file(KORVA_SAMPLES "/damaged.ts", std::ios::binary);
  for (ts_packet pkt; file.read(reinterpret_cast<char *>(pkt.data()), pkt.size());)
    e.s.packets.push_back(pkt);
  const std::string text = e.run();
  tsan_check_ndat(e);
  tsan_dump_stats(e.out, e);
  return text + e.run();
}

// Sum of a counter over the programs of a report.
uint64_t reported(const std::string &text, const std::string &label) {
  uint64_t sum = 0;
  for (size_t at = 0; (at = text.find("\t" + label + ":", at)) != std::string::npos;) {
    at += label.size() + 2;
    sum += strtoul(&text[at], nullptr, 10);
  }
  return sum;
}

} // namespace

TEST(readout, counts_are_those_of_the_report) {
  engine e;
  heard h;
  const std::string text = analyze(e, &h.readout, true);
  tsan_program_stats pg = {}, pg1 = {};
  pg.size = pg1.size = sizeof pg;
  ASSERT_EQ(tsan_get_program_stats(e, 0, &pg), 0);
  ASSERT_EQ(tsan_get_program_stats(e, 1, &pg1), 0);
  const struct {
    tsan_alert_kind kind;
    const char *label;
    uint64_t tsan_program_stats::*count;
  } counters[] = {{TSAN_AV_DELTA_PLUS, "AV delta", &tsan_program_stats::av_delta_plus},
                  {TSAN_PCR_DELTA, "PCR delta", &tsan_program_stats::pcr_delta},
                  {TSAN_PCR_FREQ, "PCR frequency", &tsan_program_stats::pcr_freq},
                  {TSAN_CC_BRK, "CC-BRK", &tsan_program_stats::cc_brk},
                  {TSAN_PMT_DIFF, "PMT-DIFF", &tsan_program_stats::pmt_diff},
                  {TSAN_PID_NDAT, "PID-NDAT", &tsan_program_stats::pid_ndat}};
  for (const auto &c : counters) {
    EXPECT_GT(h.alerts[c.kind], 0u) << c.label;
    EXPECT_EQ(h.alerts[c.kind], reported(text, c.label)) << c.label;
    EXPECT_EQ(h.alerts[c.kind], pg.*c.count + pg1.*c.count) << c.label;
  }
  const tsan_average by_kind[][2] = {{pg.pcr_interval, pg1.pcr_interval},
                                     {pg.stamp_to_pcr, pg1.stamp_to_pcr},
                                     {pg.audio_to_ref, pg1.audio_to_ref}};
  for (size_t kind = 0; kind < TSAN_SAMPLE_KINDS; ++kind) {
    EXPECT_GT(h.samples[kind], 10u);
    EXPECT_EQ(h.samples[kind], by_kind[kind][0].g_count + by_kind[kind][1].g_count);
    EXPECT_EQ(h.total_ms[kind], by_kind[kind][0].g_total + by_kind[kind][1].g_total);
  }
  const tsan_alert &brk = h.last[TSAN_CC_BRK];
  EXPECT_EQ(std::tie(brk.size, brk.program, brk.pid, brk.pkt_idx, brk.last_cc, brk.current_cc),
            std::make_tuple(sizeof brk, 0, 257u, 1491u, 14, 2));
}

TEST(readout, nothing_that_is_written_changes) {
  for (const bool limits : {false, true}) {
    heard h;
    h.readout.measure_all = true;
    std::string texts[2];
    for (auto *readout : {static_cast<tsan_readout *>(nullptr), &h.readout}) {
      engine e;
      texts[readout != nullptr] = analyze(e, readout, limits);
    }
    EXPECT_TRUE(texts[0] == texts[1]) << texts[0] << texts[1];
    EXPECT_GT(h.samples[TSAN_AUDIO_TO_REF], 10u);
  }
}

TEST(readout, ends_and_sizes) {
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

  h.readout.size += 1;
  EXPECT_EQ(tsan_set_readout(e, &h.readout), EINVAL);
  tsan_stats stats = {};
  stats.analyzed = 77;
  stats.size = offsetof(tsan_stats, analyzed); // an earlier version's
  EXPECT_EQ(tsan_get_stats(e, &stats), 0);
  EXPECT_EQ(std::tie(stats.processed, stats.analyzed), std::make_tuple(2u, 77u));
  stats.size = sizeof stats + 1;
  EXPECT_EQ(tsan_get_stats(e, &stats), EINVAL);
}
