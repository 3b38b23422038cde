#include "tsanalyze/cc.h"

#include "log/statement.h"
#include "tsanalyze/alert.h"
#include "tsanalyze/deliver.h"
#include "tsanalyze/ending.h"
#include "tsanalyze/ptag.h"
#include "tsanalyze/tdiff.h"

LOG_MODULE(0);

namespace {

int32_t cc_gap(int32_t last, int32_t current) {
  return current - last + (last > current ? 16 : 0);
}

// The same gap on another PID of the same datagram, while no packet of it was in order. Datagram 0
// is that of a caller that does not mark datagrams.
bool is_cc_mlr(tsan_ctx *tc, uint32_t pid, int32_t last, int32_t current) {
  const cc_alert_ctx &cca = tc->last_cca;
  if (cca.seg_idx == 0 || cca.nmlr == -1 || prog(tc)->last_seg_idx != cca.seg_idx || cca.pid == pid)
    return false;
  return cca.delta == cc_gap(last, current);
}

void save_cca(tsan_ctx *tc, uint32_t pid, int32_t last, int32_t current) {
  cc_alert_ctx &cca = tc->last_cca;
  if (is_cc_mlr(tc, pid, last, current))
    ++cca.nmlr;
  cca.pid = pid;
  cca.delta = cc_gap(last, current);
  cca.seg_idx = prog(tc)->last_seg_idx;
}

void alert_cc_break(tsan_ctx *tc, uint32_t pid, int32_t last, int32_t current) {
  program_info *pg = prog(tc);
  alert_human(tc, "ALERT CC-BRK [%s] dgram:%lu last/current=%d/%d pid=%u at %s\n", tc->cfg.source,
              pg->last_seg_idx, last, current, pid, ptag(tc));
  alert_terse(tc, "ALERT CC-BRK %s %u %lu %d %d %s\n", tc->cfg.source, pid, pg->last_seg_idx, last,
              current, ptag(tc));
  read_out(tc, TSAN_CC_BRK, pg, pid, [&](tsan_alert &a) {
    a.dgram = pg->last_seg_idx;
    a.last_cc = last;
    a.current_cc = current;
  });
  ++pg->alert.cc_break;
  ++alerts_of(tc, pg, tc->dat->stream).cc_break;
  save_cca(tc, pid, last, current);
}

void alert_cc_rst(tsan_ctx *tc, uint32_t pid, int32_t last, int32_t current, int64_t elapsed_ms) {
  program_info *pg = prog(tc);
  alert_human(tc, "ALERT CC-RST [%s] dgram:%lu last/current=%d/%d pid=%u delta_ms=%ld at %s\n",
              tc->cfg.source, pg->last_seg_idx, last, current, pid, elapsed_ms, ptag(tc));
  alert_terse(tc, "ALERT CC-RST %s %u %lu %d %d %ld %s\n", tc->cfg.source, pid, pg->last_seg_idx,
              last, current, elapsed_ms, ptag(tc));
  read_out(tc, TSAN_CC_RST, pg, pid, [&](tsan_alert &a) {
    a.dgram = pg->last_seg_idx;
    a.last_cc = last;
    a.current_cc = current;
    a.elapsed_ms = elapsed_ms;
  });
  ++pg->alert.cc_reset;
  ++alerts_of(tc, pg, tc->dat->stream).cc_reset;
  save_cca(tc, pid, last, current);
}

// The human form carries no line end.
void alert_cc_mlr(tsan_ctx *tc) {
  const program_info *pg = prog(tc);
  alert_human(tc, "ALERT CC-MLR [%s] dgram:%lu count=%d at %s", tc->cfg.source, pg->last_seg_idx,
              tc->last_cca.nmlr, ptag(tc));
  alert_terse(tc, "ALERT CC-MLR %s %lu %d %s\n", tc->cfg.source, pg->last_seg_idx,
              tc->last_cca.nmlr, ptag(tc));
  read_out(tc, TSAN_CC_MLR, pg, 0, [&](tsan_alert &a) {
    a.dgram = pg->last_seg_idx;
    a.count = static_cast<uint64_t>(tc->last_cca.nmlr);
  });
  ++tc->gac.cc_mlr;
}

} // namespace

// A counter that restarts at 0 long enough after it last did so is a reset; everything else out of
// order, a repeated counter included, is a break.
void report_gap(tsan_ctx *tc, stream_info *stm, uint32_t pid, int32_t cc) {
  cc_info *state = &stm->cc;
  const long reset_ms = tc->cfg.cc_max_ms0_ms;
  bool is_reset = false;
  int64_t elapsed_ms = 0;
  if (cc == 0 && reset_ms != 0) {
    const timespec now = now_of(tc);
    if (state->ms0_tm.tv_sec != 0 || state->ms0_tm.tv_nsec != 0) {
      elapsed_ms = diff_ms(&state->ms0_tm, &now);
      is_reset = reset_ms <= elapsed_ms;
    }
    state->ms0_tm = now;
  }
  if (is_reset)
    alert_cc_rst(tc, pid, state->value, cc, elapsed_ms);
  else
    alert_cc_break(tc, pid, state->value, cc);
}

void trace_counter(tsan_ctx *tc, uint32_t pid, int32_t cc) {
  LOG(g_log, INFO_level, "%s: [%s] CC=%d pid=%u at %s\n", "cc_track", tc->cfg.source, cc, pid,
      ptag(tc));
}

void tsan_next_seg(tsan_t ctx) {
  const lines_of lines(ctx);
  program_info *pg = prog(ctx);
  if (!pg)
    return;
  if (ctx->last_cca.nmlr > 0)
    alert_cc_mlr(ctx);
  ctx->last_cca.nmlr = 0;
  ++pg->last_seg_idx;
}
