// What is kept of the clock of each program.
#pragma once

#include "audit/ctx.h"

// The record of a PCR_PID, made when there is none; null when there are too many.
clock_record *clock_record_of(audit_ctx &a, uint16_t pid);
