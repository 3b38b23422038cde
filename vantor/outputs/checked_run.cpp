#include "outputs/checked_run.h"

bool has_pid(tsan_alert_kind kind) {
  return kind != TSAN_CC_MLR && kind != TSAN_PAT_DIFF && kind < TSAN_LOST_SYNC;
}

size_t limit_ms(const tsan_config &settings, tsan_sample_kind kind) {
  const size_t limits[] = {settings.pcr_freq_ms, settings.max_pcr_delta, settings.max_pdts_delta};
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

const listed_pmt *pmt_of(const survey *seen, tsan_t ctx, size_t program) {
  const auto st = stats_of(ctx, program);
  return seen ? seen->pmt_on(st.pmt_pid != 0 ? st.pmt_pid : st.listed_pid) : nullptr;
}
