// What each PID of the stream carries.
#pragma once

#include <cstdint>

#include "tsanalyze/ctx.h"

// Before there are tables: PID 0 carries the PAT, no other anything.
void pids_init(tsan_ctx *tc);

// Points each PID to what it carries; call it whenever the PMT PIDs or a program's streams have
// changed. The first match wins: PMT PIDs up to the end of their list, then the streams in program
// order.
void pids_rebuild(tsan_ctx *tc);

// Finds out where a packet with this PID belongs.
inline void setup_dat(tsan_ctx *tc, uint32_t pid) {
  tc->dat = tc->pids[pid];
  if (tc->dat->program)
    tc->last_pg = tc->dat->program;
}
