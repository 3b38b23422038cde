#include "tsanalyze/analyze.h"

#include "log/statement.h"
#include "tsanalyze/deliver.h"
#include "tsanalyze/tstamp.h"

LOG_MODULE(0);

namespace {

// New stamps of an audio stream, held against the PCR and against the reference stream. A stamp
// stays new until it has been held against the latter.
void check_audio_stamps(tsan_ctx *tc, stream_info *stm) {
  program_info *pg = prog(tc);
  if (tc->cfg.max_pcr_delta != 0 && pg->got_pcr) {
    if (stm->pts_updated)
      ck_pcr(tc, true, stm);
    if (stm->dts_updated)
      ck_pcr(tc, false, stm);
  }
  if (tc->cfg.max_pdts_delta == 0 || pg->ref_idx < 0)
    return;

  const stream_info *ref = &pg->stm[pg->ref_idx];
  if (stm->pts_updated && ref->last_pts != 0) {
    ck_tstamp(tc, true, ref, stm);
    stm->pts_updated = false;
  }
  if (stm->dts_updated && ref->last_dts != 0) {
    ck_tstamp(tc, false, ref, stm);
    stm->dts_updated = false;
  }
}

} // namespace

void begin_program(tsan_ctx *tc) {
  tc->pre_skipped = tc->ptotal - 1;
  LOG(g_log, INFO_level, "%s: %lu skipped before analysis\n", "analyze_pkt", tc->pre_skipped);
}

void check_new_stamps(tsan_ctx *tc, ts_pkt pkt) {
  stream_info *stm = tc->dat->stream;
  if (ts_pid(pkt) == prog(tc)->pcr_pid || ts_get_payload(pkt).empty())
    return;
  if (measures_all(tc)) [[unlikely]]
    measure_stamps(tc, stm);
  check_audio_stamps(tc, stm);
}
