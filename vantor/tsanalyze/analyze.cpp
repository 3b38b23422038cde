#include "tsanalyze/analyze.h"

#include "log/statement.h"
#include "tsanalyze/cc.h"
#include "tsanalyze/packet.h"
#include "tsanalyze/tstamp.h"

LOG_MODULE(0);

namespace {

// Counts the packet for its stream, its program and its kind of stream.
void inc_pkt_stat(tsan_ctx *tc, ssize_t idx, bool processed) {
  sa_stats &stat = prog(tc)->stat;
  stream_info &stm = prog(tc)->stm[idx];
  ++(processed ? stm.pcount : stm.acount);
  ++(processed ? stat.pcount : stat.acount);
  switch (stm.stype) {
  case 'V':
    ++(processed ? stat.v_pcount : stat.v_acount);
    break;
  case 'A':
    ++(processed ? stat.a_pcount : stat.a_acount);
    break;
  case 'S':
    ++(processed ? stat.s_pcount : stat.s_acount);
    break;
  default:
    break;
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

void mark_processed(tsan_ctx *tc, ssize_t idx) {
  inc_pkt_stat(tc, idx, true);
}

int analyze_pkt(tsan_ctx *tc, const uint8_t *pkt, ssize_t idx) {
  program_info *pg = prog(tc);
  stream_info *stm = &pg->stm[idx];

  if (pg->stat.acount == 0) {
    tc->pre_skipped = tc->ptotal - 1;
    LOG(g_log, INFO_level, "%s: %lu skipped before analysis\n", __func__, tc->pre_skipped);
  }
  ++tc->atotal;
  inc_pkt_stat(tc, idx, false);
  if (!tc->cfg.is_enabled)
    return 0;

  const uint32_t pid = ts_pid(pkt);
  if (tc->cfg.cc_track && ts_payload_flag(pkt))
    cc_track(tc, pid, ts_cc(pkt));
  if (pid == pg->pcr_pid)
    return 0;
  if ((stm->pts_updated || stm->dts_updated) && stm->stype == 'A' && !ts_get_payload(pkt).empty())
    check_audio_stamps(tc, stm);
  return 0;
}
