#include "tsanalyze/analyze.h"

#include "log/statement.h"
#include "mpegts/packet.h"
#include "tsanalyze/cc.h"
#include "tsanalyze/deliver.h"
#include "tsanalyze/tstamp.h"

LOG_MODULE(0);

namespace {

// Counts the packet for its stream, its program and its kind of stream: as processed and as
// analyzed, since no packet of a stream is one without the other.
void inc_pkt_stat(program_info *pg, stream_info *stm) {
  sa_stats &stat = pg->stat;
  ++stm->pcount;
  ++stm->acount;
  ++stat.pcount;
  ++stat.acount;
  if (stm->stype == 'V') {
    ++stat.v_pcount;
    ++stat.v_acount;
  } else if (stm->stype == 'A') {
    ++stat.a_pcount;
    ++stat.a_acount;
  } else if (stm->stype == 'S') {
    ++stat.s_pcount;
    ++stat.s_acount;
  }
}

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

int analyze_pkt(tsan_ctx *tc, ts_pkt pkt) {
  program_info *pg = prog(tc);
  stream_info *stm = tc->dat->stream;

  if (pg->stat.acount == 0) {
    tc->pre_skipped = tc->ptotal - 1;
    LOG(g_log, INFO_level, "%s: %lu skipped before analysis\n", __func__, tc->pre_skipped);
  }
  ++tc->atotal;
  inc_pkt_stat(pg, stm);
  if (!tc->cfg.is_enabled)
    return 0;

  if (tc->cfg.cc_track && ts_payload_flag(pkt))
    cc_track(tc, ts_pid(pkt), ts_cc(pkt));
  if (stm->stype == 'A' && (stm->pts_updated || stm->dts_updated) && ts_pid(pkt) != pg->pcr_pid &&
      !ts_get_payload(pkt).empty()) {
    if (measures_all(tc)) [[unlikely]]
      measure_stamps(tc, stm);
    check_audio_stamps(tc, stm);
  }
  return 0;
}
