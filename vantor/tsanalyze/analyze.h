// The checks on one packet of a known stream, and the counts of such packets.
#pragma once

#include "tsanalyze/ctx.h"

// Counts the packet as processed for stream `idx` of the current program.
void mark_processed(tsan_ctx *tc, ssize_t idx);

// Counts the packet as analyzed and runs the checks on it. Returns 0 to go on, another value when a
// check failed to run.
int analyze_pkt(tsan_ctx *tc, const uint8_t *pkt, ssize_t idx);
