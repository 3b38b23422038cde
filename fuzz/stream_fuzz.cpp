// A whole stream through the analyzer's public interface.
//
// An input is four bytes of settings and then packets of 188 bytes; the rest behind the last whole
// packet is not looked at. Sync bytes are set, so that an input is analyzed to its end.
//
// With KORVA_RACE, the packets are analyzed again and again, while a thread overwrites bytes of
// them as another process can when they lie in a mapped file.

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <random>
#include <span>
#include <thread>
#include <vector>

#include "fuzz/packet_mutator.h"
#include "fuzz/reached.h"
#include "log/log.h"
#include "tassert/tassert.h"
#include "tsanalyze/clock.h"
#include "tsanalyze/readout.h"
#include "tsanalyze/tsan.h"

namespace {

#ifdef KORVA_RACE
enum { OVERWRITTEN = 20000, ROUNDS = 100 };
#else
enum { OVERWRITTEN = 0, ROUNDS = 1 };
#endif

struct prescribed_abort {};

// A clock that moves by a millisecond each time it is read, the same for every run of an input.
int64_t g_clock_ms;

void throw_on_assertion(const tassert_failure &failure) {
  note_reached(failure.expr);
  throw prescribed_abort{};
}

// Lines are formatted in full and go nowhere.
FILE *open_logs() {
  FILE *sink = fopen("/dev/null", "w");
  for (log_ctx *log : {g_log, g_access_log}) {
    log_default(log, sink);
    log_timefmt(log, f_NO_TIME);
  }
  log_set_modules(g_log, OVERWRITTEN != 0 ? MIN_level : DEBUG_level);
  g_tassert_hook = throw_on_assertion;
  return sink;
}

tsan_config make_settings(std::span<const uint8_t> bytes) {
  const uint8_t checks = bytes[0], traces = bytes[1];
  tsan_config cfg = {};
  cfg.is_enabled = !(checks & 1);
  strcpy(cfg.source, "fuzz");
  cfg.max_skip_pkts = 5000;
  cfg.max_pdts_delta = checks & 2 ? 100 : 0;
  cfg.max_pcr_delta = checks & 4 ? 100 : 0;
  cfg.pcr_freq_ms = checks & 8 ? 40 : 0;
  cfg.access_log_alerts = !(checks & 16);
  cfg.no_rlog = checks & 32;
  cfg.cc_track = !(checks & 64);
  cfg.cc_max_ms0_ms = checks & 128 ? 1 : 0;
  cfg.max_ndat_pcount = bytes[2];
  cfg.dump_stats_period = 1;
  bool *const flags[] = {&cfg.trk.sdt_ignore,  &cfg.trk.misc_ignore, &cfg.trk.pdts_update,
                         &cfg.trk.pat_pmt_pkt, &cfg.trk.pcr_update,  &cfg.trk.cc_track,
                         &cfg.trk.pmt_diff,    &cfg.trk.pat_diff};
  for (size_t i = 0; i < std::size(flags); ++i)
    *flags[i] = !(traces >> i & 1);
  return cfg;
}

// Each packet in memory of its own, so that a step outside it is seen.
using packet_list = std::vector<std::unique_ptr<uint8_t[]>>;

packet_list packets_of(std::span<const uint8_t> input) {
  packet_list packets;
  for (; input.size() >= PACKET_SIZE; input = input.subspan(PACKET_SIZE)) {
    packets.push_back(std::make_unique<uint8_t[]>(PACKET_SIZE));
    std::ranges::copy(input.first(PACKET_SIZE), packets.back().get());
    packets.back()[0] = 0x47;
  }
  return packets;
}

// Every `per_dgram` packets a datagram ends; 0 is a caller that does not mark them.
void analyze(tsan_t ctx, const packet_list &packets, unsigned per_dgram) {
  for (size_t i = 0; i < packets.size(); ++i) {
    if (per_dgram != 0 && i % per_dgram == 0)
      tsan_next_seg(ctx);
    if (tsan_process_many(ctx, packets[i].get(), 1, PACKET_SIZE).code != 0)
      break;
  }
}

// Overwrites neighbouring bytes, mostly where lengths and flags stand, for a moment: tables stay
// tables.
void overwrite(const std::stop_token &stop, const packet_list &packets, std::atomic<int> &left) {
  constexpr size_t NEIGHBOURS = 3;
  std::minstd_rand random(1);
  for (; left > 0 && !stop.stop_requested(); --left) {
    const size_t room = random() % 4 == 0 ? PACKET_SIZE - NEIGHBOURS : 16;
    volatile uint8_t *at = packets[random() % packets.size()].get() + 1 + random() % room;
    uint8_t former[NEIGHBOURS];
    std::copy_n(at, NEIGHBOURS, former);
    for (int i = 0; i < 100; ++i)
      at[random() % NEIGHBOURS] = static_cast<uint8_t>(random());
    std::copy_n(former, NEIGHBOURS, at);
  }
}

// Everything that a read-out is given is looked at.
void set_readout(tsan_t ctx) {
  static volatile uint64_t sum;
  const tsan_readout readout = {
      .size = sizeof(tsan_readout),
      .opaque = nullptr,
      .on_alert =
          [](void *, const tsan_alert *alert) {
            sum = sum + strlen(alert->ptag) + strlen(tsan_alert_name(alert->kind)) + alert->pid;
          },
      .on_sample = [](void *, const tsan_sample *sample) { sum = sum + sample->ms + sample->pid; },
      .measure_all = true,
  };
  tsan_set_readout(ctx, &readout);
}

void report(tsan_t ctx, FILE *out) {
  tsan_check_ndat(ctx);
  tsan_set_pidx(ctx, 1000 - tsan_get_pidx(ctx));
  tsan_alert_lostsync(ctx);
  tsan_check_dump_stats(out, ctx);
  tsan_dump_stats(out, ctx);
  tsan_alog_stats(ctx);
  tsan_reset_local_stats(ctx);
}

} // namespace

bool set_now(timespec *ts) {
  ++g_clock_ms;
  *ts = {.tv_sec = 1 + g_clock_ms / 1000, .tv_nsec = g_clock_ms % 1000 * 1000000};
  return true;
}

time_t wall_seconds() {
  return 1 + g_clock_ms / 1000;
}

static void run(std::span<const uint8_t> input, const packet_list &packets) {
  static FILE *const sink = open_logs();
  g_clock_ms = 0;
  const tsan_config cfg = make_settings(input);
  tsan_t ctx = tsan_init(nullptr, &cfg, nullptr);
  if (input[3] & 8)
    set_readout(ctx);
  if (input[3] & 16)
    tsan_set_log(
        ctx, [](void *, int, const char *, const char *) {}, nullptr);
  tsan_survive(ctx, input[3] & 32);
  try {
    for (int round = 0; round < ROUNDS; ++round)
      analyze(ctx, packets, input[3] % 8);
    report(ctx, sink);
  } catch (const prescribed_abort &) {
    // A table that ends the program: the search goes on behind it.
  }
  note_alerts(ctx);
  tsan_free(ctx);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);
int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size < SETTINGS_SIZE)
    return -1;
  const std::span input(data, size);
  const packet_list packets = packets_of(input.subspan(SETTINGS_SIZE));
  std::atomic<int> left = packets.empty() ? 0 : OVERWRITTEN;
  std::jthread other;
  if (left != 0)
    other = std::jthread(overwrite, std::cref(packets), std::ref(left));
  do
    run(input, packets);
  while (left > 0);
  return 0;
}
