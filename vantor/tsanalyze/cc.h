// Continuity counters (ISO/IEC 13818-1, 2.4.3.3): losses, restarts, and losses that hit several
// streams of one datagram.
#pragma once

#include "tsanalyze/ctx.h"

// Checks the counter of one packet with payload of the current program's stream `pid`.
void cc_track(tsan_ctx *tc, uint32_t pid, uint32_t cc);
