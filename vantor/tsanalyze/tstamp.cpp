#include "tsanalyze/tstamp.h"

#include <algorithm>

#include "log/statement.h"
#include "misc/timestr.h"
#include "mpegts/mpegts.h"
#include "tsanalyze/alert.h"
#include "tsanalyze/deliver.h"
#include "tsanalyze/ptag.h"

LOG_MODULE(0);

namespace {

// A time as text, for the length of a statement.
struct time_text {
  char text[64] = {};
  explicit time_text(uint64_t ms) { ms2timestr(ms, text, sizeof text - 1); }
};

// Text of a value of the 90 kHz clock.
time_text ticks_text(uint64_t ticks) {
  return time_text(ticks / 90);
}

const char *kind_of(bool is_pts) {
  return is_pts ? "pts" : "dts";
}

uint64_t stamp_of(const stream_info *stream, bool is_pts) {
  return is_pts ? stream->last_pts : stream->last_dts;
}

// The 33-bit wrap is not made up for: a stamp behind it lies a day away from a clock before it.
uint32_t distance_ms(uint64_t a, uint64_t b) {
  return pcr_delta_ms(std::min(a, b), std::max(a, b));
}

// Stores a stamp; true when it differs from the last one and the change is to be traced.
bool store_stamp(const tsan_ctx *tc, uint64_t stamp, uint64_t *last, uint64_t *pktnum,
                 bool *updated) {
  *updated = stamp != *last;
  *last = stamp;
  *pktnum = tc->last_pkt_idx;
  return *updated && log_passes(g_llctx, DEBUG_level) && tc->cfg.trk.pdts_update;
}

void dump_pcr_diff(tsan_ctx *tc, bool is_pts, uint64_t delta, const stream_info *stream) {
  program_info *pg = prog(tc);
  const char *kind = kind_of(is_pts);
  const uint64_t stamp = stamp_of(stream, is_pts);
  char pcr_ptag[MAX_PTAG];
  write_tag(pg->pcr_tag, pcr_ptag);
  const stream_info *pcr_stm = pg->pcr_idx >= 0 ? &pg->stm[pg->pcr_idx] : nullptr;
  alert_human(
      tc,
      "ALERT PCR-DELTA [%s] pcr:%s <> %s:%s %c:pcr(pid%u)/%c:%s(pid%u) = %lu [%s]/ %lu [%s] "
      "delta=%lu\n",
      tc->cfg.source, kind, pcr_ptag, ptag(tc), pcr_stm ? pcr_stm->stype : 'P',
      pcr_stm ? pcr_stm->pid : pg->pcr_pid, stream->stype, kind, stream->pid, pg->last_pcr,
      ticks_text(pg->last_pcr).text, stamp, ticks_text(stamp).text, delta);
  alert_terse(tc, "ALERT PCR-DELTA %s %s %u %lu %u %lu %lu [%s]\n", tc->cfg.source, kind,
              pg->pcr_pid, pg->last_pcr, stream->pid, stamp, delta, ptag(tc));
  read_out(tc, TSAN_PCR_DELTA, pg, stream->pid, [&](tsan_alert &a) {
    a.is_pts = is_pts;
    a.stamp = stamp;
    a.pcr = pg->last_pcr;
    a.pcr_pid = pg->pcr_pid;
    a.delta_ms = delta;
  });
  ++pg->alert.pcr_delta;
  ++alerts_of(tc, pg, stream).pcr_delta;
}

void dump_time_info(tsan_ctx *tc, tsan_alert_kind alert_kind, bool is_pts, uint64_t delta,
                    const stream_info *ref, const stream_info *stream) {
  const program_info *pg = prog(tc);
  const char *label = tsan_alert_name(alert_kind);
  const char *kind = kind_of(is_pts);
  const uint64_t ref_stamp = stamp_of(ref, is_pts);
  const uint64_t stamp = stamp_of(stream, is_pts);
  alert_human(tc,
              "ALERT %s [%s] %s %c:%s(pid%u)/%c:%s(pid%u) = %lu [%s]/%lu [%s] PCR=%lu [%s], "
              "delta=%lu\n",
              label, tc->cfg.source, ptag(tc), ref->stype, kind, ref->pid, stream->stype, kind,
              stream->pid, ref_stamp, ticks_text(ref_stamp).text, stamp, ticks_text(stamp).text,
              pg->last_pcr, ticks_text(pg->last_pcr).text, delta);
  alert_terse(tc, "ALERT %s %s %s %u %lu %u %lu %lu [%s]\n", label, tc->cfg.source, kind, ref->pid,
              ref_stamp, stream->pid, stamp, delta, ptag(tc));
  read_out(tc, alert_kind, pg, stream->pid, [&](tsan_alert &a) {
    a.is_pts = is_pts;
    a.stamp = stamp;
    a.ref_pid = ref->pid;
    a.ref_stamp = ref_stamp;
    a.pcr = pg->last_pcr;
    a.delta_ms = delta;
  });
}

const stream_info *first_video(const program_info *pg) {
  const auto *end = pg->stm + pg->nstreams;
  const auto *video = std::find_if(pg->stm, end, [](auto &stm) { return stm.stype == 'V'; });
  return video == end ? nullptr : video;
}

measured stamp_to_pcr(const program_info *pg, bool is_pts, const stream_info *stream) {
  return {.kind = TSAN_STAMP_TO_PCR,
          .pid = stream->pid,
          .is_pts = is_pts,
          .pcr = pg->last_pcr,
          .stamp = stamp_of(stream, is_pts)};
}

measured audio_to_ref(const program_info *pg, bool is_pts, const stream_info *ref,
                      const stream_info *stream) {
  return {.kind = TSAN_AUDIO_TO_REF,
          .pid = stream->pid,
          .is_pts = is_pts,
          .pcr = pg->last_pcr,
          .stamp = stamp_of(stream, is_pts),
          .ref_stamp = stamp_of(ref, is_pts)};
}

measured pcr_interval(const program_info *pg, uint64_t new_pcr) {
  return {.kind = TSAN_PCR_INTERVAL, .pid = pg->pcr_pid, .is_pts = false, .pcr = new_pcr};
}

void measure_stamp(tsan_ctx *tc, bool is_pts, const stream_info *ref, const stream_info *stream) {
  program_info *pg = prog(tc);
  const uint64_t stamp = stamp_of(stream, is_pts);
  if (tc->cfg.max_pcr_delta == 0 && pg->got_pcr)
    take_sample(tc, &pg->av_pcr_delta, stamp_to_pcr(pg, is_pts, stream),
                distance_ms(pg->last_pcr, stamp), false);
  if (tc->cfg.max_pdts_delta == 0 && ref && stamp_of(ref, is_pts) != 0)
    take_sample(tc, &pg->av_pdts_delta, audio_to_ref(pg, is_pts, ref, stream),
                distance_ms(stamp_of(ref, is_pts), stamp), false);
}

} // namespace

void update_pts_dts(tsan_ctx *tc, pkt_bytes pes, stream_info *stream) {
  if (pes_has_PTS(pes) && store_stamp(tc, pes_get_PTS(pes), &stream->last_pts, &stream->pts_pktnum,
                                      &stream->pts_updated))
    LOG(g_log, INFO_level, "%s: [%s] PTS=%lu [%s] pid=%u at %s\n", __func__, tc->cfg.source,
        stream->last_pts, ticks_text(stream->last_pts).text, stream->pid, ptag(tc));
  if (pes_has_DTS(pes) && store_stamp(tc, pes_get_DTS(pes), &stream->last_dts, &stream->dts_pktnum,
                                      &stream->dts_updated))
    LOG(g_log, INFO_level, "%s: [%s] DTS=%lu [%s] pid=%u at %s\n", __func__, tc->cfg.source,
        stream->last_dts, ticks_text(stream->last_dts).text, stream->pid, ptag(tc));
}

void ck_pcr(tsan_ctx *tc, bool is_pts, const stream_info *stream) {
  program_info *pg = prog(tc);
  const uint64_t delta = distance_ms(pg->last_pcr, stamp_of(stream, is_pts));
  take_sample(tc, &pg->av_pcr_delta, stamp_to_pcr(pg, is_pts, stream), delta);
  if (delta > tc->cfg.max_pcr_delta)
    dump_pcr_diff(tc, is_pts, delta, stream);
}

void ck_tstamp(tsan_ctx *tc, bool is_pts, const stream_info *ref, const stream_info *stream) {
  program_info *pg = prog(tc);
  const uint64_t ref_stamp = stamp_of(ref, is_pts);
  const uint64_t stamp = stamp_of(stream, is_pts);
  const uint64_t delta = distance_ms(ref_stamp, stamp);
  take_sample(tc, &pg->av_pdts_delta, audio_to_ref(pg, is_pts, ref, stream), delta);
  if (delta == 0 && ref_stamp != stamp) {
    dump_time_info(tc, TSAN_AV_DELTA0, is_pts, delta, ref, stream);
    ++pg->alert.av_delta0;
    ++alerts_of(tc, pg, stream).av_delta0;
  } else if (delta > tc->cfg.max_pdts_delta) {
    dump_time_info(tc, TSAN_AV_DELTA_PLUS, is_pts, delta, ref, stream);
    ++pg->alert.av_deltaplus;
    ++alerts_of(tc, pg, stream).av_deltaplus;
  }
}

void pcr_freq_check(tsan_ctx *tc, uint64_t new_pcr) {
  program_info *pg = prog(tc);
  const uint64_t delta = pcr_delta_ms(pg->last_pcr, new_pcr);
  take_sample(tc, &pg->av_pcr_freq, pcr_interval(pg, new_pcr), delta);
  if (delta <= tc->cfg.pcr_freq_ms)
    return;
  // The two times of this alert show the ticks as if they were milliseconds.
  alert_human(tc, "ALERT PCR-FREQ pid=%u old/new: %lu [%s]/%lu [%s] delta=%lu\n", pg->pcr_pid,
              pg->last_pcr, time_text(pg->last_pcr).text, new_pcr, time_text(new_pcr).text, delta);
  alert_terse(tc, "ALERT PCR-FREQ %s %u %lu %lu %lu [%s]\n", tc->cfg.source, pg->pcr_pid,
              pg->last_pcr, new_pcr, delta, ptag(tc));
  read_out(tc, TSAN_PCR_FREQ, pg, pg->pcr_pid, [&](tsan_alert &a) {
    a.pcr_pid = pg->pcr_pid;
    a.old_pcr = pg->last_pcr;
    a.pcr = new_pcr;
    a.delta_ms = delta;
  });
  ++pg->alert.pcr_freq;
  ++alerts_of(tc, pg, tc->dat->stream).pcr_freq;
}

void measure_pcr_interval(tsan_ctx *tc, uint64_t new_pcr) {
  program_info *pg = prog(tc);
  const uint64_t ticks = calc_pcr_delta(pg->last_pcr, new_pcr, true);
  take_sample(tc, &pg->av_pcr_freq, pcr_interval(pg, new_pcr), static_cast<uint32_t>(ticks / 90),
              false);
}

// A checked stamp stays new until it has been held against the reference; here each counts once.
void measure_stamps(tsan_ctx *tc, const stream_info *stream) {
  const stream_info *ref = first_video(prog(tc));
  if (stream->pts_updated && stream->pts_pktnum == tc->last_pkt_idx)
    measure_stamp(tc, true, ref, stream);
  if (stream->dts_updated && stream->dts_pktnum == tc->last_pkt_idx)
    measure_stamp(tc, false, ref, stream);
}
