// Findings: events of one kind at one place that follow each other closely are one.
#pragma once

#include "audit/ctx.h"

// An event of the packet at hand, at the time known before its PCR is taken, or after.
inline event event_here(const audit_ctx &a, audit_kind kind, int32_t pid) {
  return {.kind = kind, .pid = pid, .packet = a.packet, .offset = a.offset, .time = now(a)};
}

void raise(audit_ctx &a, event e);

// Delivers what nothing can be added to any more, at a knot.
void close_findings(audit_ctx &a);

// A PID holds no loss any more: findings that waited for it can be closed.
void unpark_findings(audit_ctx &a, uint32_t pid);

// Delivers all that is open, at the end.
void close_all_findings(audit_ctx &a);
