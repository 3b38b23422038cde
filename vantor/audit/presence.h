// Which PIDs there are: scrambled ones, ones that nobody lists, ones that never came.
#pragma once

#include "audit/ctx.h"

// A packet whose transport_scrambling_control is not 0.
void take_scrambled(audit_ctx &a, uint32_t pid);

// A packet of a PID that no table has listed yet.
void take_unlisted(audit_ctx &a, uint32_t pid);

// The first packet of a stream that need not recur.
void take_awaited(audit_ctx &a, uint32_t pid);

// What is only known at the end.
void judge_absent(audit_ctx &a);
void judge_unreferenced(audit_ctx &a);
void judge_missing_cat(audit_ctx &a);

// Every program that the PAT lists has a PMT, and there is one.
bool has_all_pmts(const audit_ctx &a);
