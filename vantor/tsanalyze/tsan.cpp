#include "tsanalyze/tsan.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "log/statement.h"
#include "mpegts/packet.h"
#include "syswrap/syswrap.h"
#include "tsanalyze/alert.h"
#include "tsanalyze/analyze.h"
#include "tsanalyze/classify.h"
#include "tsanalyze/clock.h"
#include "tsanalyze/ctx.h"
#include "tsanalyze/deliver.h"
#include "tsanalyze/ending.h"
#include "tsanalyze/ndat.h"
#include "tsanalyze/pids.h"
#include "tsanalyze/ptag.h"
#include "tsanalyze/section.h"

LOG_MODULE(0);

namespace {

// Seconds.
enum : time_t { IDLE_NOTICE_PAUSE = 10, LOSTSYNC_WINDOW = 2 };

// How many packets ahead the first bytes of one are fetched from memory, and then from the second
// cache into the first. Measured: in one step, it takes a fifth longer.
enum : size_t { FETCH_FAR = 128, FETCH_NEAR = 16 };

const volatile sig_atomic_t never = 0;

// Cases of lost sync in one window that are put up with.
enum : size_t { LOSTSYNC_MAX = 9 };

// Ends a run in which nothing could be analyzed so far, and that for too long.
[[gnu::noinline]] int check_idle(tsan_ctx *tc) {
  if (tc->last_pkt_idx < tc->cfg.max_skip_pkts)
    return 0;
  const time_t now = wall_seconds();
  if (now - tc->idle_notice_tm > IDLE_NOTICE_PAUSE) {
    LOG(g_log, ERR_level, "[%s] has been idling for too long (%lu/%zu packets)\n", tc->cfg.source,
        tc->last_pkt_idx, tc->cfg.max_skip_pkts);
    tc->idle_notice_tm = now;
  }
  read_out(tc, TSAN_IDLE, nullptr, 0, [](tsan_alert &) {});
  return TSAN_GAVE_UP;
}

void begin_packet(tsan_ctx *tc, ts_pkt pkt) {
  setup_dat(tc, ts_pid(pkt));
  if (tc->ptotal == 0) [[unlikely]]
    tc->start_tm = now_of(tc);
  ++tc->last_pkt_idx;
  ++tc->ptotal;
}

[[gnu::always_inline]] inline int process_in_sync(tsan_ctx *tc, ts_pkt pkt) {
  if (upsert_pkt_info(tc, pkt) < 0)
    return tc->atotal != 0 ? 0 : check_idle(tc);
  analyze_pkt(tc, pkt);
  if (tc->ndat_pcount != 0) [[unlikely]]
    check_pcount(tc, false);
  return 0;
}

} // namespace

// A context that is all zeros, but for its settings, gets ready for its first packet.
static void begin_run(tsan_ctx *tc) {
  for (program_info &pg : tc->pg)
    pg.ref_idx = pg.pcr_idx = -1;
  psi_block_init(&tc->pat);
  tc->ndat_pcount = tc->cfg.max_ndat_pcount;
  pids_init(tc);
  setup_dat(tc, PID_PAT); // of no program, as long as there is no packet
}

// Gives back what a context owns outside of itself.
static void release_tables(tsan_ctx *tc) {
  // Of all programs, since a merged PAT can have brought their number down.
  for (program_info &pg : tc->pg)
    close_ctxt(&pg.txt_pmt);
  psi_block_free(&tc->pat);
  if (tc->new_pat)
    psi_block_free(tc->new_pat);
  free(tc->new_pat);
}

tsan_t tsan_init(const char *src, const tsan_config *cfg, int *err) {
  auto *tc = static_cast<tsan_ctx *>(W_calloc(__func__, 1, sizeof(tsan_ctx)));
  if (!tc) {
    if (err)
      *err = ENOMEM;
    return nullptr;
  }
  tc->cfg = *cfg;
  if (src)
    strncpy(tc->cfg.source, src, sizeof tc->cfg.source - 1);
  tc->cfg.source[sizeof tc->cfg.source - 1] = '\0';
  tsan_stop_on(tc, nullptr);
  begin_run(tc);
  LOG(g_log, DEBUG_level, "%s: tsan[%s] (%p) created\n", __func__, tc->cfg.source,
      static_cast<void *>(tc));
  return tc;
}

void tsan_reset(tsan_t ctx) {
  release_tables(ctx);
  const tsan_settings settings = *ctx;
  memset(static_cast<void *>(ctx), 0, sizeof *ctx);
  static_cast<tsan_settings &>(*ctx) = settings;
  ctx->stop = ctx->caller_stop;
  begin_run(ctx);
}

void tsan_free(tsan_t ctx) {
  if (!ctx)
    return;
  const lines_of lines(ctx);
  LOG(g_log, DEBUG_level, "%s: freeing up tsan[%s] (%p)\n", __func__, ctx->cfg.source,
      static_cast<void *>(ctx));
  release_tables(ctx);
  explicit_bzero(ctx, sizeof *ctx - sizeof ctx->stream_alerts);
  free(ctx);
}

int tsan_process(tsan_t ctx, const uint8_t *bytes) {
  if (ctx->ended != 0)
    return ctx->ended;
  const lines_of lines(ctx);
  const ts_pkt pkt = ts_read(bytes);
  begin_packet(ctx, pkt);
  if (!ts_in_sync(pkt)) {
    LOG(g_log, ERR_level, "%s: [%s] out of sync at %s\n", __func__, ctx->cfg.source, ptag(ctx));
    read_out(ctx, TSAN_OUT_OF_SYNC, nullptr, 0, [](tsan_alert &) {});
    return TSAN_NO_SYNC;
  }
  const int code = process_in_sync(ctx, pkt);
  return ctx->ended != 0 ? ctx->ended : code;
}

[[gnu::noinline]] tsan_many tsan_process_many(tsan_t ctx, const uint8_t *bytes, size_t count,
                                              size_t stride) {
  const lines_of lines(ctx);
  size_t i = 0;
  for (; i < count; ++i, bytes += stride) {
    __builtin_prefetch(bytes + FETCH_FAR * stride, 0, 2);
    __builtin_prefetch(bytes + FETCH_NEAR * stride);
    const ts_pkt pkt = ts_read(bytes);
    if (*ctx->stop != 0)
      break;
    if (!ts_in_sync(pkt))
      return {i, TSAN_NO_SYNC};
    begin_packet(ctx, pkt);
    if (const int code = process_in_sync(ctx, pkt))
      return {i, ctx->ended != 0 ? ctx->ended : code};
  }
  // The packet that ended the run, if one of these did, is the last one.
  return ctx->ended == 0 ? tsan_many{i, 0} : tsan_many{i - (i != 0), ctx->ended};
}

void tsan_stop_on(tsan_t ctx, const volatile sig_atomic_t *flag) {
  ctx->caller_stop = flag ? flag : &never;
  if (ctx->ended == 0)
    ctx->stop = ctx->caller_stop;
}

void tsan_stop(tsan_t ctx) {
  end_run(ctx, TSAN_STOPPED);
}

void tsan_set_log(tsan_t ctx, tsan_line_fn on_line, void *opaque) {
  ctx->taker = {.take = on_line, .opaque = opaque};
}

void tsan_survive(tsan_t ctx, bool survives) {
  ctx->survives = survives;
}

uint64_t tsan_get_pidx(tsan_t ctx) {
  return ctx->last_pkt_idx;
}

void tsan_set_pidx(tsan_t ctx, uint64_t idx) {
  const lines_of lines(ctx);
  ptag(ctx); // the tag of the packet at hand keeps its index
  LOG(g_log, WARN_level, "[%s] packet index changed from %lu to %lu\n", ctx->cfg.source,
      ctx->last_pkt_idx, idx);
  ctx->last_pkt_idx = idx;
}

int tsan_alert_lostsync(tsan_t ctx) {
  const lines_of lines(ctx);
  const time_t now = wall_seconds();
  if (ctx->lostsync_start == 0) {
    ctx->lostsync_start = now;
  } else if (now - ctx->lostsync_start > LOSTSYNC_WINDOW && ctx->lostsync_count <= LOSTSYNC_MAX) {
    ctx->lostsync_count = 0;
    ctx->lostsync_start = now;
  }
  ++ctx->lostsync_count;
  ++ctx->gac.lost_sync;

  alert_human(ctx, "ALERT LOST-SYNC [%s] seq=%zu at %s\n", ctx->cfg.source, ctx->lostsync_count,
              ptag(ctx));
  // The terse form does not wait for access_log_alerts.
  LOG(g_access_log, MIN_level, "ALERT LOST-SYNC %s %zu [%s]\n", ctx->cfg.source,
      ctx->lostsync_count, ptag(ctx));

  read_out(ctx, TSAN_LOST_SYNC, nullptr, 0, [&](tsan_alert &a) { a.count = ctx->lostsync_count; });

  if (ctx->lostsync_count <= LOSTSYNC_MAX)
    return 0;
  LOG(g_log, ERR_level, "%s: bailing out after %zu cases within %ld sec\n", __func__,
      ctx->lostsync_count, now - ctx->lostsync_start);
  return -1;
}
