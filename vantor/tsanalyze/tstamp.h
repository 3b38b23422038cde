// Clocks of a program: PTS and DTS of its streams, held against its PCR and against each other. All
// values are 33-bit counts of the 90 kHz clock; distances are in milliseconds.
#pragma once

#include "mpegts/packet.h"
#include "tsanalyze/ctx.h"

// Records the stamps of a PES header.
void update_pts_dts(tsan_ctx *tc, pkt_bytes pes, stream_info *stream);

// Checks how far a stream's PTS (or DTS) lies from the program's last PCR: PCR-DELTA.
void ck_pcr(tsan_ctx *tc, bool is_pts, const stream_info *stream);

// Checks how far it lies from that of the reference stream: AV-DELTA0, AV-DELTA+.
void ck_tstamp(tsan_ctx *tc, bool is_pts, const stream_info *ref, const stream_info *stream);

// Checks the interval from the program's last PCR to a new one: PCR-FREQ.
void pcr_freq_check(tsan_ctx *tc, uint64_t new_pcr);

// Measurements for the read-out of what has no threshold. The interval to a new PCR:
void measure_pcr_interval(tsan_ctx *tc, uint64_t new_pcr);

// The new stamps of an audio stream, in the packet that brought them:
void measure_stamps(tsan_ctx *tc, const stream_info *stream);
