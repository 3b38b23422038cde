// What a packet is to the analyzer: SDT, PAT, PMT, carrier of a PCR, part of a stream, or none.
#pragma once

#include "mpegts/packet.h"
#include "tsanalyze/ctx.h"

// Classifies one packet that setup_dat() has located, and feeds it to whoever follows its kind.
// Returns the index of its stream in the current program, or -1 when it belongs to no stream.
ssize_t upsert_pkt_info(tsan_ctx *tc, ts_pkt pkt);
