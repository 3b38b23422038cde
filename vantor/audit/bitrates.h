// What each PID costs.
#pragma once

#include "audit/ctx.h"

// At a knot: the bitrates of the seconds that have passed. A second ends at the first knot behind
// it.
void measure_bitrates(audit_ctx &a);
