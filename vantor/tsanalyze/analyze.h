// The checks on one packet of a known stream, and the count of such packets.
#pragma once

#include "mpegts/packet.h"
#include "tsanalyze/ctx.h"

// Counts the packet and runs the checks on it. Returns 0 to go on, another value when a
// check failed to run.
int analyze_pkt(tsan_ctx *tc, ts_pkt pkt);
