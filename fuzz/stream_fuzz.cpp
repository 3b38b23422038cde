// A whole stream through the analyzer's public interface.
//
// An input is four bytes of settings and then packets of 188 bytes; the rest behind the last whole
// packet is not looked at. Sync bytes are set, so that an input is analyzed to its end.

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <span>

#include "fuzz/packet_mutator.h"
#include "fuzz/reached.h"
#include "log/log.h"
#include "tassert/tassert.h"
#include "tsanalyze/clock.h"
#include "tsanalyze/readout.h"
#include "tsanalyze/tsan.h"

namespace {

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
  log_set_modules(g_log, DEBUG_level);
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

// Every `per_dgram` packets a datagram ends; 0 is a caller that does not mark them.
void analyze(tsan_t ctx, std::span<const uint8_t> packets, unsigned per_dgram) {
  for (size_t i = 0; i < packets.size() / PACKET_SIZE; ++i) {
    if (per_dgram != 0 && i % per_dgram == 0)
      tsan_next_seg(ctx);
    uint8_t pkt[PACKET_SIZE];
    memcpy(pkt, &packets[i * PACKET_SIZE], sizeof pkt);
    pkt[0] = 0x47;
    if (tsan_process(ctx, pkt) != 0)
      break;
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

void set_now(timespec *ts) {
  ++g_clock_ms;
  *ts = {.tv_sec = 1 + g_clock_ms / 1000, .tv_nsec = g_clock_ms % 1000 * 1000000};
}

time_t wall_seconds() {
  return 1 + g_clock_ms / 1000;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);
int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static FILE *const sink = open_logs();
  if (size < SETTINGS_SIZE)
    return -1;
  g_clock_ms = 0;
  const std::span input(data, size);
  const tsan_config cfg = make_settings(input);
  tsan_t ctx = tsan_init(nullptr, &cfg, nullptr);
  if (input[3] & 8)
    set_readout(ctx);
  try {
    analyze(ctx, input.subspan(SETTINGS_SIZE), input[3] % 8);
    report(ctx, sink);
  } catch (const prescribed_abort &) {
    // A table that ends the program: the search goes on behind it.
  }
  note_alerts(ctx);
  tsan_free(ctx);
  return 0;
}
