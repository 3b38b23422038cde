// What each PID of the stream carries.
#pragma once

#include <cstdint>

#include "tsanalyze/ctx.h"

// Rebuilds the table of PIDs; call it whenever the PMT PIDs or a program's streams have changed.
// The first match wins: PMT PIDs up to the end of their list, then the streams in program order.
void pids_rebuild(tsan_ctx *tc);

// Finds out where a packet with this PID belongs.
inline void setup_dat(tsan_ctx *tc, uint32_t pid) {
  const pid_use use = tc->pids[pid];
  dgram_info &dat = tc->dat;
  dat.ipg = use.ipg;
  dat.istm = use.istm;
  dat.is_pat = pid == PID_PAT;
  dat.is_pmt = use.ipg >= 0 && use.istm < 0;
  dat.program = use.ipg >= 0 ? &tc->pg[use.ipg] : nullptr;
  dat.stream = use.istm >= 0 ? &dat.program->stm[use.istm] : nullptr;
  if (dat.program)
    tc->last_pg = dat.program;
}
