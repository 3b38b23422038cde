#include "tsanalyze/readout.h"

#include <cerrno>
#include <iterator>

#include "misc/sized_record.h"
#include "tsanalyze/deliver.h"
#include "tsanalyze/pmt.h"

namespace {

constexpr const char *alert_names[TSAN_ALERT_KINDS] = {
    "CC-BRK",   "CC-RST",   "CC-MLR",   "PCR-DELTA", "AV-DELTA0",   "AV-DELTA+", "PCR-FREQ",
    "PAT-DIFF", "PMT-DIFF", "PID-NDAT", "LOST-SYNC", "OUT-OF-SYNC", "IDLE",
};

int program_index(const tsan_ctx *tc, const program_info *pg) {
  return pg ? static_cast<int>(pg - tc->pg) : -1;
}

uint32_t program_number(const tsan_ctx *tc, const program_info *pg) {
  return pg ? tc->program_number[pg - tc->pg] : 0;
}

tsan_average average_of(const aggr_val &av) {
  return {av.count, av.total, av.min, av.max, av.g_count, av.g_total, av.g_min, av.g_max};
}

} // namespace

tsan_alert new_alert(tsan_ctx *tc, tsan_alert_kind kind, const program_info *pg, uint32_t pid) {
  tsan_alert alert = {};
  alert.size = sizeof alert;
  alert.kind = kind;
  alert.program = program_index(tc, pg);
  alert.pid = pid;
  alert.pkt_idx = tc->last_pkt_idx;
  alert.ptag = ptag(tc);
  alert.program_number = program_number(tc, pg);
  if (const program_info *current = current_pg(tc))
    alert.last_pcr = current->last_pcr;
  return alert;
}

void read_out_sample(tsan_ctx *tc, const measured &what, uint64_t ms, bool is_checked) {
  tsan_sample sample = {};
  sample.size = sizeof sample;
  sample.kind = what.kind;
  sample.program = program_index(tc, prog(tc));
  sample.pid = what.pid;
  sample.is_pts = what.is_pts;
  sample.is_checked = is_checked;
  sample.pkt_idx = tc->last_pkt_idx;
  sample.last_pcr = prog(tc)->last_pcr;
  sample.ms = ms;
  sample.pcr = what.pcr;
  sample.stamp = what.stamp;
  sample.ref_stamp = what.ref_stamp;
  sample.program_number = program_number(tc, prog(tc));
  tc->readout.on_sample(tc->readout.opaque, &sample);
}

int tsan_set_readout(tsan_t ctx, const tsan_readout *readout) {
  if (!readout) {
    ctx->readout = {};
    return 0;
  }
  return take_record(*readout, ctx->readout) ? 0 : EINVAL;
}

const char *tsan_alert_name(tsan_alert_kind kind) {
  const auto index = static_cast<size_t>(kind);
  return index < std::size(alert_names) ? alert_names[index] : nullptr;
}

int tsan_get_stats(tsan_t ctx, tsan_stats *stats) {
  return give_record({.size = 0,
                      .processed = ctx->ptotal,
                      .analyzed = ctx->atotal,
                      .start_skipped = ctx->pre_skipped,
                      .programs = ctx->nprogs,
                      .lost_sync = ctx->gac.lost_sync,
                      .pat_diff = ctx->gac.pat_diff,
                      .cc_mlr = ctx->gac.cc_mlr,
                      .transport_stream_id = ctx->transport_stream_id,
                      .result = ctx->ended},
                     stats);
}

int tsan_get_program_stats(tsan_t ctx, size_t program, tsan_program_stats *stats) {
  if (program >= ctx->nprogs)
    return EINVAL;
  const program_info &pg = ctx->pg[program];
  return give_record({.size = 0,
                      .streams = pg.nstreams,
                      .pmt_pid = pg.curr_pmt_pid,
                      .pcr_pid = pg.pcr_pid,
                      .processed = pg.stat.count,
                      .analyzed = pg.stat.count,
                      .video = pg.stat.video,
                      .audio = pg.stat.audio,
                      .other = pg.stat.other,
                      .video_analyzed = pg.stat.video,
                      .audio_analyzed = pg.stat.audio,
                      .other_analyzed = pg.stat.other,
                      .av_delta_plus = pg.alert.av_deltaplus,
                      .av_delta0 = pg.alert.av_delta0,
                      .pcr_delta = pg.alert.pcr_delta,
                      .pcr_freq = pg.alert.pcr_freq,
                      .cc_brk = pg.alert.cc_break,
                      .cc_rst = pg.alert.cc_reset,
                      .pmt_diff = pg.alert.pmt_diff,
                      .pid_ndat = pg.alert.pid_ndat,
                      .audio_to_ref = average_of(pg.av_pdts_delta),
                      .stamp_to_pcr = average_of(pg.av_pcr_delta),
                      .pcr_interval = average_of(pg.av_pcr_freq),
                      .listed_pid = ctx->pmt_pid[program],
                      .program_number = ctx->program_number[program]},
                     stats);
}

int tsan_get_stream_stats(tsan_t ctx, size_t program, size_t stream, tsan_stream_stats *stats) {
  if (program >= ctx->nprogs || stream >= ctx->pg[program].nstreams)
    return EINVAL;
  const stream_info &stm = ctx->pg[program].stm[stream];
  const stream_alert_count &alert = ctx->stream_alerts[program][stream];
  return give_record({.size = 0,
                      .pid = stm.pid,
                      .kind = stm.stype,
                      .type = stm.scode,
                      .name = streamtype_name(stm.scode),
                      .processed = stm.count,
                      .analyzed = stm.count,
                      .cc_brk = alert.cc_break,
                      .cc_rst = alert.cc_reset,
                      .pcr_delta = alert.pcr_delta,
                      .av_delta_plus = alert.av_deltaplus,
                      .av_delta0 = alert.av_delta0,
                      .pcr_freq = alert.pcr_freq,
                      .pid_ndat = alert.pid_ndat},
                     stats);
}
