// Continuity counters (ISO/IEC 13818-1, 2.4.3.3): losses, restarts, and losses that hit several
// streams of one datagram.
#pragma once

#include "mpegts/packet.h"
#include "tsanalyze/ctx.h"

// Reports a counter that is not the one behind that of the stream's packet before.
[[gnu::noinline]] void report_gap(tsan_ctx *tc, stream_info *stm, uint32_t pid, int32_t cc);

// Shows a counter, for the trace of them.
[[gnu::cold]] void trace_counter(tsan_ctx *tc, uint32_t pid, int32_t cc);

// Checks the counter of one packet with payload of the current stream.
inline void cc_track(tsan_ctx *tc, stream_info *stm, ts_pkt pkt) {
  const auto current = static_cast<int32_t>(ts_cc(pkt));
  const int32_t last = stm->cc.value;
  if (last != -1) [[likely]] {
    if (current == ((last + 1) & 15)) [[likely]]
      tc->last_cca.nmlr = -1;
    else
      report_gap(tc, stm, ts_pid(pkt), current);
  }
  stm->cc.value = current;
  if (tc->cfg.trk.cc_track) [[unlikely]]
    trace_counter(tc, ts_pid(pkt), current);
}
