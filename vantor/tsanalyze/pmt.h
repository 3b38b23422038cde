// Program Map Table (ISO/IEC 13818-1, 2.4.4.8): a program's streams, and what changes in them.
//
// A PMT is told from another by its text rendering: whatever the rendering shows, the version
// included, counts as a change. All operations work on the current program, with a section that
// guard_pmt() has made safe.
#pragma once

#include "tsanalyze/ctx.h"
#include "tsanalyze/section.h"

// Builds the stream table from a PMT. False, with no stream added, when the PMT is refused.
bool process_PMT(tsan_ctx *tc, psi_section *sec, uint32_t pid);

// Compares a later PMT with the one in force; a difference is reported, the new text is in force
// then, and true is returned.
bool cmp_PMT(tsan_ctx *tc, psi_section *sec, uint32_t pid);

// Rebuilds the stream table from a changed PMT; streams listed before keep their state.
void update_PMT(tsan_ctx *tc, psi_section *sec, uint32_t pid);

// Name of a stream_type, with blanks turned to '_'. Valid until the calling thread's next call.
const char *get_streamtype_txt(uint8_t scode);

// The same as it stands in the standard, blanks kept.
const char *streamtype_name(uint8_t scode);
