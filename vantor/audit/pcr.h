// PCRs (ISO/IEC 13818-1, 2.4.2.2, 2.7.2): gaps and jumps.
#pragma once

#include "audit/ctx.h"

struct taken_pcr {
  pcr_track before; // the PID's PCRs up to this one
  pcr_step step = {};
  bool is_announced = false;
};

// Takes the PCR (27 MHz) of the packet at hand. When it makes a knot of the clock, that is to be
// seen to before judge_by_pcr().
taken_pcr take_pcr(audit_ctx &a, uint16_t pid, int64_t pcr, bool is_announced);

// Judges what had to wait for this PCR: time stamps before it, the stream's rate.
void judge_by_pcr(audit_ctx &a, uint16_t pid, const taken_pcr &taken);

// Judges, at the end, clocks that stopped, or never began.
void judge_last_pcrs(audit_ctx &a);
