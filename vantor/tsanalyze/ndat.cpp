#include "tsanalyze/ndat.h"

#include "log/statement.h"
#include "tsanalyze/alert.h"
#include "tsanalyze/deliver.h"
#include "tsanalyze/ptag.h"

LOG_MODULE(0);

namespace {

uint64_t current_pcount(tsan_ctx *tc) {
  const program_info *pg = current_pg(tc);
  return pg ? pg->stat.count : 0;
}

// The alert counts on the program whose packet is at hand, not on the one that owns the track.
void alert_ndat_pcount(tsan_ctx *tc, size_t ipg, size_t istm, uint32_t pid) {
  alert_human(tc, "ALERT PID-NDAT [%s] %zu:%zu pid%u received no data %s\n", tc->cfg.source, ipg,
              istm, pid, ptag(tc));
  alert_terse(tc, "ALERT PID-NDAT %s %u %zu %zu %s\n", tc->cfg.source, pid, ipg, istm, ptag(tc));
  read_out(tc, TSAN_PID_NDAT, &tc->pg[ipg], pid, [&](tsan_alert &a) { a.track = istm; });
  ++tc->stream_alerts[ipg][istm].pid_ndat;
  program_info *pg = current_pg(tc);
  ++(pg ? pg : &tc->pg[ipg])->alert.pid_ndat;
}

} // namespace

void reset_ndat_pcount(tsan_ctx *tc) {
  if (tc->cfg.max_ndat_pcount == 0)
    return;
  tc->ndat_pcount = current_pcount(tc) + tc->cfg.max_ndat_pcount;
  LOG(g_log, DEBUG_level, "%s: (%p) NDAT pcount=%lu\n", __func__, static_cast<void *>(tc),
      tc->ndat_pcount);
}

void check_pcount(tsan_ctx *tc, bool final) {
  if (!final && current_pcount(tc) < tc->ndat_pcount)
    return;

  size_t total = 0, silent = 0;
  for (size_t i = 0; i < tc->nprogs; ++i) {
    for (size_t j = 0; j < tc->pg[i].nstreams; ++j) {
      ++total;
      if (tc->pg[i].stm[j].count == 0) {
        alert_ndat_pcount(tc, i, j, tc->pg[i].stm[j].pid);
        ++silent;
      }
    }
  }

  if (silent > 0) {
    LOG(g_log, WARN_level, "[%s] %zu tracks NOT receiving data\n", tc->cfg.source, silent);
    reset_ndat_pcount(tc);
    tc->ndat_pcount = current_pcount(tc) + tc->cfg.max_ndat_pcount;
  } else {
    tc->ndat_pcount = 0;
    LOG(g_log, NORM_level, "[%s] %zu tracks receiving data\n", tc->cfg.source, total);
  }
}

void tsan_check_ndat(tsan_t ctx) {
  const lines_of lines(ctx);
  check_pcount(ctx, true);
}
