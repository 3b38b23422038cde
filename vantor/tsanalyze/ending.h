// What ends a run before its stream does: tables that are held to be impossible, a clock that
// cannot be read, a caller who asks for it. The first two end the process, unless the context
// survives.
#pragma once

#include "tassert/tassert.h"
#include "tsanalyze/ctx.h"

// From now on nothing is analyzed, and `code` is the result. The first one stays.
void end_run(tsan_ctx *tc, tsan_result code);

// What a table must say. When it does not: ends the process through an assertion or, of a context
// that survives, the run; the result is false then, and the caller leaves the table.
#define TABLE_HOLDS(tc, expr) TABLE_HOLDS_AS(tc, expr, #expr)

// The same; the message quotes `text`.
#define TABLE_HOLDS_AS(tc, expr, text)                                                             \
  ((expr) || refuse_table(tc, {text, __FILE__, __LINE__, __func__}))

// Returns false.
[[gnu::cold]] bool refuse_table(tsan_ctx *tc, const tassert_failure &failure);

// Monotonic time now; of a context that survives all zero when the clock cannot be read.
timespec now_of(tsan_ctx *tc);
