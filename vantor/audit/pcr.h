// PCRs (ISO/IEC 13818-1, 2.4.2.2, 2.7.2): gaps and jumps.
#pragma once

#include "audit/ctx.h"

// Takes the PCR (27 MHz) of the packet at hand. True when it makes a knot of the clock.
bool take_pcr(audit_ctx &a, uint16_t pid, int64_t pcr, bool is_announced);

// Judges, at the end, clocks that stopped, or never began.
void judge_last_pcrs(audit_ctx &a);
