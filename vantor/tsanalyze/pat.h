// Program Association Table (ISO/IEC 13818-1, 2.4.4.3): the list of PMT PIDs, and what changes in
// it.
//
// The first complete PAT is the reference for the whole run. Each later one that differs from it is
// merged into the list of PMT PIDs: new PIDs are appended, vanished ones removed. Every entry of
// the program loop counts, the network PID of program_number 0 included.
#pragma once

#include "tsanalyze/ctx.h"
#include "tsanalyze/section.h"

// Gathers the first PAT and reads the PMT PIDs once it is complete.
void process_PAT(tsan_ctx *tc, psi_section *sec);

// Gathers a later PAT; compares and merges it once it is complete.
void another_PAT(tsan_ctx *tc, psi_section *sec);
