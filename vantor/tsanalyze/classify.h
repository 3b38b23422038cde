// What a packet is to the analyzer: SDT, PAT, PMT, carrier of a PCR, part of a stream, or none.
#pragma once

#include "mpegts/packet.h"
#include "tsanalyze/ctx.h"

// Takes what a packet of a stream can bring beside its payload: a PCR, a PES header.
[[gnu::noinline]] void take_clocks(tsan_ctx *tc, ts_pkt pkt);

// Takes PAT and PMT, and traces what is disregarded: the SDT, and packets of no stream.
[[gnu::noinline]] void take_other(tsan_ctx *tc, ts_pkt pkt);

// Classifies one packet that setup_dat() has located, and feeds it to whoever follows its kind.
// Returns the index of its stream in the current program, or -1 when it belongs to no stream.
inline ssize_t upsert_pkt_info(tsan_ctx *tc, ts_pkt pkt) {
  const dgram_info &dat = *tc->dat;
  if (dat.istm >= 0 && ts_pid(pkt) != PID_SDT) {
    if (ts_adaptation_flag(pkt) || ts_unit_start(pkt))
      take_clocks(tc, pkt);
  } else if (dat.is_pat || dat.is_pmt || tc->cfg.trk.sdt_ignore || tc->cfg.trk.misc_ignore) {
    take_other(tc, pkt);
  }
  return dat.istm;
}
