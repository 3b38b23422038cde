// What must recur: sections of a table, packets of a stream, PTSs. Each is watched from knot to
// knot: a burst of packets in a stream of varying rate is not time, so what came is judged when the
// clock knows when that was.
#pragma once

#include "audit/ctx.h"

// Begins to watch. `is_opening`: the first interval begins with what comes first; else at time 0.
void start_watch(watch &w, recurs what, uint32_t id, audit_table table, bool is_opening);

// Watches no longer; what came since the last knot is forgotten.
void stop_watch(audit_ctx &a, watch &w);

// The interval that is open ends here, unjudged.
void cut_interval(watch &w);

// Something in the packet at hand counts as one: a listing, say. Or one came indeed.
void touch(audit_ctx &a, watch &w);
void came(audit_ctx &a, watch &w);

// The same for a packet of a watched PID.
void begin_presence(audit_ctx &a, uint32_t pid);
inline void touch_presence(audit_ctx &a, pid_state &p, uint32_t pid) {
  if (p.touched != a.clock.knots + 1) [[unlikely]]
    begin_presence(a, pid);
  p.last_packet = a.packet;
  p.last_ahead = a.clock.ahead;
}

// Judges, at a knot, the gaps that ended since the one before.
void judge_recurrence(audit_ctx &a);

// Judges, at the end, the gaps that last to it.
void judge_last_gaps(audit_ctx &a);
