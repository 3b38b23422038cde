// Silent tracks: streams that a PMT announces and that never carry a packet.
//
// The check waits for a deadline, counted in packets of the current program, so that it costs one
// comparison per packet until then.
#pragma once

#include "tsanalyze/ctx.h"

// Arms the check: one period (max_ndat_pcount) from now. Nothing changes when that is 0.
void reset_ndat_pcount(tsan_ctx *tc);

// Reports every silent track, once the deadline is reached or when `final`; armed again for as long
// as there is one.
[[gnu::noinline]] void check_pcount(tsan_ctx *tc, bool final);
