// The rate of the stream by its PCRs: constant or not, how exact the PCRs are (ISO/IEC 13818-1,
// 2.4.2.2; ETSI TR 101 290, annex I), and, in a constant rate, packets that are missing.
#pragma once

#include "audit/clocks.h"

// Takes an interval between two PCRs of a PCR_PID in force.
void take_rate_interval(audit_ctx &a, clock_record &clock, const pcr_step &step);

// Judges, at the end, what no longer fills a block, and the accuracy of all.
void judge_last_rates(audit_ctx &a);

// Is the rate constant? 1 yes, 0 no, -1 not to be told.
int is_constant_rate(const audit_ctx &a);
