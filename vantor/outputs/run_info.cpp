#include "outputs/run_info.h"

#include <algorithm>

#include "input/packet_file.h"
#include "tsa/config.h"

uint64_t packet_offset(uint64_t pkt_idx) {
  const auto skipped = static_cast<uint64_t>(std::max<off_t>(g_cfg.start_rec, 1) - 1);
  return (skipped + pkt_idx - 1) * PKT_SIZE;
}

bool is_unreadable(run_end end) {
  return end == run_end::cannot_open || end == run_end::read_failed;
}

const char *run_end_name(run_end end) {
  constexpr const char *names[] = {"complete", "limit",       "signal",     "stopped",
                                   "failed",   "cannot-open", "read-failed"};
  return names[static_cast<size_t>(end)];
}

size_t measure_limit_ms(tsan_sample_kind kind) {
  const size_t limits[] = {g_cfg.tsa.pcr_freq_ms, g_cfg.tsa.max_pcr_delta,
                           g_cfg.tsa.max_pdts_delta};
  return limits[kind];
}

tsan_stats stats_of(tsan_t ctx) {
  tsan_stats stats = {};
  stats.size = sizeof stats;
  tsan_get_stats(ctx, &stats);
  return stats;
}

tsan_program_stats stats_of(tsan_t ctx, size_t program) {
  tsan_program_stats stats = {};
  stats.size = sizeof stats;
  tsan_get_program_stats(ctx, program, &stats);
  return stats;
}

tsan_stream_stats stats_of(tsan_t ctx, size_t program, size_t stream) {
  tsan_stream_stats stats = {};
  stats.size = sizeof stats;
  tsan_get_stream_stats(ctx, program, stream, &stats);
  return stats;
}
