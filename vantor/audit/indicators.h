// Indicators of ETSI TR 101 290, clause 5.2: which findings count for which, and what can be told
// of those without any.
#pragma once

#include "audit/ctx.h"

// The indicator that an event belongs to as it happens, MAX_INDICATORS for none.
uint8_t indicator_index(const audit_ctx &a, const event &e);

// Its id; null for none.
const char *indicator_id(uint8_t index);

// Counts a finding that is closed for it.
void count_for_indicator(audit_ctx &a, uint8_t index, const event &finding);

// How many the profile has.
size_t indicator_count(const audit_ctx &a);

// The record of one, after the end.
audit_indicator indicator_record(const audit_ctx &a, size_t index);
