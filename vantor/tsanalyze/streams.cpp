#include "tsanalyze/streams.h"

#include "log/statement.h"
#include "tsanalyze/ptag.h"

LOG_MODULE(0);

char code2stype(uint8_t scode) {
  switch (scode) {
  case 0x01: // MPEG-1 video
  case 0x02: // MPEG-2 video
  case 0x10: // MPEG-4 part 2
  case 0x1B: // H.264
  case 0x24: // HEVC
  case 0x42: // AVS
    return 'V';
  case 0x03: // MPEG-1 audio
  case 0x04: // MPEG-2 audio
  case 0x0F: // AAC, ADTS
  case 0x11: // AAC, LATM
  case 0x81: // AC-3
  case 0x87: // E-AC-3
    return 'A';
  case 0x06: // private data in PES packets
    return 'S';
  default:
    return '?';
  }
}

// The first video stream ever accepted stays the reference, whatever later PMTs list.
static void choose_reference(tsan_ctx *tc, const stream_info &stm, ssize_t index) {
  program_info *pg = prog(tc);
  if (pg->ref_idx >= 0) {
    LOG(g_log, WARN_level, "%s: 1+ video: ref_idx already set (to %zd)\n", "add_stream",
        pg->ref_idx);
    return;
  }
  pg->ref_idx = index;
  LOG(g_log, DEBUG_level, "%s: [%s] ref_idx=%zd for %c-stream pid=%u\n", "add_stream",
      tc->cfg.source, pg->ref_idx, stm.stype, stm.pid);
}

ssize_t add_stream(tsan_ctx *tc, uint32_t pid, uint8_t scode) {
  program_info *pg = prog(tc);
  const char kind = code2stype(scode);
  if (kind == '?') {
    LOG(g_log, DEBUG_level, "%s: [%s] skipping non-AV PES at %s\n", __func__, tc->cfg.source,
        ptag(tc));
    return -1;
  }
  if (pg->nstreams >= MAX_NSTREAMS) {
    LOG(g_log, ERR_level, "%s: [%s] too many streams: %zu\n", __func__, tc->cfg.source,
        pg->nstreams);
    return -1;
  }

  // The packet counter of the position stays: a stream known before gets its own back right after.
  const auto n = static_cast<ssize_t>(pg->nstreams);
  stream_info &stm = pg->stm[n];
  stm.pid = pid;
  stm.stype = kind;
  stm.scode = scode;
  stm.last_pts = stm.last_dts = 0;
  stm.cc = {.value = -1, .ms0_tm = {}};
  alerts_of(tc, pg, &stm) = {};

  if (pid == pg->pcr_pid) {
    pg->pcr_idx = n;
    LOG(g_log, DEBUG_level, "%s: [%s] pcr_idx=%zd for %c-stream pid=%u\n", __func__, tc->cfg.source,
        pg->pcr_idx, kind, pid);
  }
  if (tc->cfg.max_pdts_delta != 0 && kind == 'V')
    choose_reference(tc, stm, n);

  ++pg->nstreams;
  LOG(g_log, DEBUG_level, "%s: added stream[%d]:pid=%u (%c/%s) at %s, %zu streams total\n",
      __func__, static_cast<int>(n), pid, kind, pid == pg->pcr_pid ? "PCR" : "-", ptag(tc),
      pg->nstreams);
  return n;
}

ssize_t find_stream(std::span<const stream_info> streams, uint32_t pid) {
  for (size_t i = 0; i < streams.size(); ++i)
    if (streams[i].pid == pid)
      return static_cast<ssize_t>(i);
  return -1;
}

void copy_stm_stats(stream_info *dst, const stream_info *src) {
  const stream_info listed = *dst;
  *dst = *src;
  dst->pid = listed.pid;
  dst->stype = listed.stype;
  dst->scode = listed.scode;
}
