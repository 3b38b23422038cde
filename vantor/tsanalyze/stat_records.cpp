// STAT records: the statistics as terse lines of the access log, for callers that watch a stream
// while it runs.

#include "log/statement.h"
#include "misc/aval.h"
#include "tsanalyze/clock.h"
#include "tsanalyze/ctx.h"
#include "tsanalyze/ending.h"
#include "tsanalyze/pmt.h"
#include "tsanalyze/tdiff.h"

LOG_MODULE(0);

namespace {

void log_global_stats(tsan_ctx *tc) {
  const timespec now = now_of(tc);
  LOG(g_access_log, MIN_level, "STAT GLOBAL %s %ld %zu %lu %lu %lu %lu\n", tc->cfg.source,
      diff_ms(&tc->start_tm, &now), tc->nprogs, tc->pre_skipped, tc->gac.lost_sync,
      tc->gac.pat_diff, tc->gac.cc_mlr);
}

void log_pmt_stats(tsan_ctx *tc, size_t i) {
  const program_info &pg = tc->pg[i];
  LOG(g_access_log, MIN_level, "STAT PMTs %s %zu %u %zu\n", tc->cfg.source, i, pg.curr_pmt_pid,
      pg.nstreams);
  for (size_t j = 0; j < pg.nstreams; ++j) {
    const stream_info &stm = pg.stm[j];
    LOG(g_access_log, MIN_level, "STAT PMTi %s %zu %u %c %lu %lu [%s]\n", tc->cfg.source, i,
        stm.pid, stm.stype, stm.count, stm.count, get_streamtype_txt(stm.scode));
  }
}

// The PID is that of the current program, whichever program is reported.
void log_prg_stats(tsan_ctx *tc, size_t i) {
  const sa_stats &stat = tc->pg[i].stat;
  const program_info *current = current_pg(tc);
  LOG(g_access_log, MIN_level, "STAT PRG %s %u %lu %lu %lu %lu %lu %lu %lu %lu\n", tc->cfg.source,
      current ? current->pcr_pid : 0u, stat.count, stat.count, stat.video, stat.video, stat.audio,
      stat.audio, stat.other, stat.other);
}

void log_aval_stats(const char *label, const char *source, int32_t a, int32_t b,
                    const aggr_val *av) {
  LOG(g_access_log, MIN_level, "STAT %s %s %d %d %.02f %lu %lu %lu %lu %.02f %lu %lu %lu %lu\n",
      label, source, a, b, aval_local_avg(av), av->count, av->total, av->min, av->max,
      aval_global_avg(av), av->g_count, av->g_total, av->g_min, av->g_max);
}

int32_t stream_pid(const program_info &pg, ssize_t idx) {
  return idx < 0 ? -1 : static_cast<int32_t>(pg.stm[idx].pid);
}

// Only what is measured: a check that is off has nothing to tell.
void log_prg_deltas(tsan_ctx *tc, size_t i) {
  const program_info &pg = tc->pg[i];
  const int32_t a_ref = stream_pid(pg, pg.ref_idx);
  const int32_t a_pcr = stream_pid(pg, pg.pcr_idx);
  if (tc->cfg.max_pdts_delta != 0)
    log_aval_stats("AV-delta", tc->cfg.source, a_ref, -1, &pg.av_pdts_delta);
  if (tc->cfg.max_pcr_delta != 0)
    log_aval_stats("PCR-delta", tc->cfg.source, a_pcr, -1, &pg.av_pcr_delta);
  if (tc->cfg.pcr_freq_ms != 0)
    log_aval_stats("PCR-freq", tc->cfg.source, a_pcr, -1, &pg.av_pcr_freq);
}

// PMT changes are not among these counts.
void log_alert_counters(tsan_ctx *tc, size_t i) {
  const pg_alert_count &alert = tc->pg[i].alert;
  LOG(g_access_log, MIN_level, "STAT ALERT-count %s %zu %lu %lu %lu %lu %lu %lu %lu\n",
      tc->cfg.source, i, alert.av_deltaplus, alert.av_delta0, alert.pcr_delta, alert.pcr_freq,
      alert.cc_break, alert.cc_reset, alert.pid_ndat);
}

} // namespace

void tsan_alog_stats(tsan_t ctx) {
  const lines_of lines(ctx);
  log_global_stats(ctx);
  for (size_t i = 0; i < ctx->nprogs; ++i) {
    // The streams of a program rarely change: once in 256 reports will do.
    if (ctx->pg[i].skip_pmt_out++ == 0)
      log_pmt_stats(ctx, i);
    log_prg_stats(ctx, i);
    log_prg_deltas(ctx, i);
    log_alert_counters(ctx, i);
  }
}

int tsan_check_dump_stats(FILE *out, tsan_t ctx) {
  if (ctx->cfg.dump_stats_period == 0)
    return 0;
  const time_t now = wall_seconds();
  if (ctx->last_stats_dumped == 0) {
    ctx->last_stats_dumped = now;
    return 0;
  }
  if (now - ctx->last_stats_dumped < static_cast<time_t>(ctx->cfg.dump_stats_period))
    return 0;
  if (out)
    tsan_dump_stats(out, ctx);
  tsan_alog_stats(ctx);
  return 1;
}

void tsan_reset_local_stats(tsan_t ctx) {
  for (program_info &pg : ctx->pg) {
    reset_aval(&pg.av_pdts_delta);
    reset_aval(&pg.av_pcr_delta);
    reset_aval(&pg.av_pcr_freq);
  }
}
