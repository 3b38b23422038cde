// The checks on one packet of a known stream, and the count of such packets.
#pragma once

#include "mpegts/packet.h"
#include "tsanalyze/cc.h"
#include "tsanalyze/ctx.h"

// Before the first packet of a program is counted.
[[gnu::cold]] void begin_program(tsan_ctx *tc);

// Holds new stamps of an audio stream against the program's clocks, in a packet with payload that
// does not bring the PCR itself.
[[gnu::noinline]] void check_new_stamps(tsan_ctx *tc, ts_pkt pkt);

inline void count_packet(program_info *pg, stream_info *stm) {
  sa_stats &stat = pg->stat;
  ++stm->count;
  ++stat.count;
  ++(stm->stype == 'V' ? stat.video : stm->stype == 'A' ? stat.audio : stat.other);
}

// Counts the packet and runs the checks on it.
inline void analyze_pkt(tsan_ctx *tc, ts_pkt pkt) {
  program_info *pg = prog(tc);
  stream_info *stm = tc->dat->stream;
  if (pg->stat.count == 0) [[unlikely]]
    begin_program(tc);
  ++tc->atotal;
  count_packet(pg, stm);
  if (!tc->cfg.is_enabled)
    return;
  if (tc->cfg.cc_track && ts_payload_flag(pkt))
    cc_track(tc, stm, pkt);
  if (stm->stype == 'A' && (stm->pts_updated || stm->dts_updated))
    check_new_stamps(tc, pkt);
}
