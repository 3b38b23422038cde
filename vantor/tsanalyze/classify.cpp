#include "tsanalyze/classify.h"

#include "log/statement.h"
#include "misc/timestr.h"
#include "mpegts/mpegts.h"
#include "mpegts/packet.h"
#include "tsanalyze/deliver.h"
#include "tsanalyze/pat.h"
#include "tsanalyze/pmt.h"
#include "tsanalyze/ptag.h"
#include "tsanalyze/section.h"
#include "tsanalyze/tstamp.h"

LOG_MODULE(0);

namespace {

void handle_pat(tsan_ctx *tc, ts_pkt pkt) {
  if (tc->cfg.trk.pat_pmt_pkt)
    LOG(g_log, INFO_level, "[%s] found PAT at %s\n", tc->cfg.source, ptag(tc));
  psi_section sec;
  take_section(pkt, &sec);
  if (tc->nprogs != 0) {
    another_PAT(tc, &sec);
    return;
  }
  LOG(g_log, INFO_level, "[%s] using PAT (pid%u) at %s\n", tc->cfg.source, 0u, ptag(tc));
  process_PAT(tc, &sec);
}

void handle_pmt(tsan_ctx *tc, ts_pkt pkt, uint32_t pid) {
  if (tc->cfg.trk.pat_pmt_pkt)
    LOG(g_log, INFO_level, "[%s] found PMT (pid%u) at %s\n", tc->cfg.source, pid, ptag(tc));
  const bool known = prog(tc)->nstreams != 0;
  if (!known)
    LOG(g_log, INFO_level, "[%s] will use PMT (pid%u) at %s\n", tc->cfg.source, pid, ptag(tc));

  psi_section sec;
  take_section(pkt, &sec);
  if (!guard_pmt(&sec))
    return;
  if (!known)
    process_PMT(tc, &sec, pid);
  else if (cmp_PMT(tc, &sec, pid))
    update_PMT(tc, &sec, pid);
}

bool pkt_has_pcr(tsan_ctx *tc, ts_pkt pkt) {
  return ts_has_pcr(pkt) && ts_pid(pkt) == prog(tc)->pcr_pid;
}

void handle_pcr(tsan_ctx *tc, ts_pkt pkt) {
  program_info *pg = prog(tc);
  const uint64_t pcr = ts_get_pcr_base(pkt.bytes);
  if (tc->cfg.pcr_freq_ms != 0 && pg->last_pcr != 0)
    pcr_freq_check(tc, pcr);
  else if (pg->last_pcr != 0 && measures_all(tc)) [[unlikely]]
    measure_pcr_interval(tc, pcr);

  pg->pcr_tag = take_tag(tc); // still counts from the PCR before
  pg->last_pcr = pcr;
  pg->pcr_pktnum = tc->last_pkt_idx;
  pg->got_pcr = true;

  if (tc->cfg.trk.pcr_update && log_passes(g_llctx, INFO_level)) {
    char time_text[64] = {};
    ms2timestr(pcr / 90, time_text, sizeof time_text - 1);
    LOG(g_log, INFO_level, "[%s] new PCR=%lu [%s] at %s\n", tc->cfg.source, pcr, time_text,
        ptag(tc));
  }
}

void handle_pes(tsan_ctx *tc, ts_pkt pkt) {
  const pkt_bytes payload = ts_get_payload(pkt);
  if (is_pes_pkt(payload))
    update_pts_dts(tc, payload, tc->dat->stream);
}

} // namespace

// Only a PID that the program's PMT lists as a stream can bring its PCR.
void take_clocks(tsan_ctx *tc, ts_pkt pkt) {
  if (pkt_has_pcr(tc, pkt))
    handle_pcr(tc, pkt);
  if (ts_unit_start(pkt) && ts_payload_flag(pkt))
    handle_pes(tc, pkt);
}

void take_other(tsan_ctx *tc, ts_pkt pkt) {
  const uint32_t pid = ts_pid(pkt);
  if (pid == PID_SDT) {
    if (tc->cfg.trk.sdt_ignore)
      LOG(g_log, INFO_level, "[%s] disregarding SDT at %s\n", tc->cfg.source, ptag(tc));
  } else if (pid == PID_PAT) {
    handle_pat(tc, pkt);
  } else if (tc->dat->is_pmt) {
    handle_pmt(tc, pkt, pid);
  } else if (tc->cfg.trk.misc_ignore) {
    LOG(g_log, INFO_level, "%s: [%s] ignoring pid=%u %s\n", "upsert_pkt_info", tc->cfg.source, pid,
        ptag(tc));
  }
}
