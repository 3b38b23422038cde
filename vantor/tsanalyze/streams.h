// A program's stream table.
#pragma once

#include <span>

#include "tsanalyze/ctx.h"

// Kind of stream that a stream_type stands for: 'V' video, 'A' audio, 'S' subtitles and private
// data, '?' none of these.
char code2stype(uint8_t scode);

// Appends a stream to the current program. Returns its index, or -1 for a stream that is neither
// video, audio nor private data, and when the table is full.
ssize_t add_stream(tsan_ctx *tc, uint32_t pid, uint8_t scode);

// Index of the first stream with this PID, or -1.
ssize_t find_stream(std::span<const stream_info> streams, uint32_t pid);

// Carries counters, time stamps and continuity state over to a stream that a new PMT lists again.
void copy_stm_stats(stream_info *dst, const stream_info *src);
