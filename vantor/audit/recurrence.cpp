#include "audit/recurrence.h"

#include <utility>

#include "audit/findings.h"
#include "audit/tables.h"

namespace {

constexpr double MS = 1000; // per second
constexpr double EQUAL =
    1e-6; // ms: what arithmetic may add to a gap that is just as long as allowed

constexpr audit_limit table_limits[] = {AUDIT_LIMITS, AUDIT_PAT_MS, AUDIT_PMT_MS, AUDIT_NIT_MS,
                                        AUDIT_SDT_MS, AUDIT_EIT_MS, AUDIT_EIT_MS, AUDIT_TDT_MS};

constexpr audit_kind gap_kinds[] = {AUDIT_PSI_GAP, AUDIT_PID_GAP, AUDIT_PTS_GAP, AUDIT_PCR_GAP};

bool is_judged(const audit_ctx &a, const watch &w) {
  switch (w.what) {
  case recurs::table:
    return a.cfg.profile != AUDIT_OTT;
  case recurs::presence: {
    const char kind = a.records[w.id].kind;
    return kind == 'V' || kind == 'A';
  }
  case recurs::pts:
    return true;
  default:
    return false; // of PCRs each interval is judged when it ends
  }
}

double limit_ms(const audit_ctx &a, const watch &w) {
  if (w.what == recurs::table)
    return a.cfg.limits[table_limits[w.table]];
  return a.cfg.limits[w.what == recurs::presence ? AUDIT_PID_GAP_MS : AUDIT_PTS_MS];
}

bool is_too_long(double gap_ms, double limit) {
  return limit != 0 && gap_ms - limit > EQUAL;
}

event gap_event(const audit_ctx &a, const watch &w) {
  event e = {.kind = gap_kinds[static_cast<size_t>(w.what)], .never = !w.came};
  e.table = w.table;
  if (w.what != recurs::table) {
    e.pid = static_cast<int32_t>(w.id);
  } else if (w.table == AUDIT_PMT) {
    e.pid = a.tables.programs[w.id]->pmt_pid;
    e.program_number = a.tables.programs[w.id]->number;
  } else {
    e.pid = table_pid(a, w.table);
  }
  return e;
}

// Time of a packet between the last two knots. Without a PCR at the second one the line to it tells
// nothing that the estimates did not.
double time_between(const audit_ctx &a, uint64_t packet, double ahead) {
  if (a.clock.knot_has_pcr)
    return clock_line(a.clock, packet);
  return estimate(a.clock.before, packet, ahead);
}

void judge(audit_ctx &a, watch &w) {
  if (w.what == recurs::presence) {
    const pid_state &p = a.pids[w.id];
    if (p.touched == a.clock.knots) { // counted up since
      w.last = p.last_packet;
      w.last_ahead = p.last_ahead;
    }
  }
  const double first_t = time_between(a, w.first, w.first_ahead);
  if (!std::exchange(w.is_opening, false)) {
    const double gap = first_t - w.last_t;
    w.longest = std::max(w.longest, gap);
    if (is_judged(a, w) && is_too_long(gap * MS, limit_ms(a, w))) {
      event e = gap_event(a, w);
      e.packet = w.first;
      e.offset = w.first_offset;
      e.time = first_t;
      e.value = gap * MS;
      e.never = false;
      raise(a, std::move(e));
    }
  }
  w.last_t = time_between(a, w.last, w.last_ahead);
  w.is_opening = std::exchange(w.is_cut, false);
}

// Outside of the profile of joined segments intervals last to the end; in it, and without a clock,
// only what never came is known to be missing.
void judge_last_table(audit_ctx &a, watch &w) {
  const double limit = limit_ms(a, w);
  if (limit == 0)
    return;
  const bool is_ott = a.cfg.profile == AUDIT_OTT;
  event e = gap_event(a, w);
  if (a.clock.runs && !is_ott) {
    const double gap = a.clock.now.t - w.last_t;
    w.longest = std::max(w.longest, gap);
    if (!is_too_long(gap * MS, limit))
      return;
    e.value = gap * MS;
  } else if (w.came || w.table > AUDIT_PMT || (!is_ott && packets_of(a) <= KNOT_PACKETS)) {
    return;
  }
  e.packet = a.packet;
  e.offset = a.offset;
  e.time = now(a);
  e.to_end = true;
  e.never = false;
  raise(a, std::move(e));
}

void judge_last_presence(audit_ctx &a, watch &w) {
  const double gap = a.clock.now.t - w.last_t;
  w.longest = std::max(w.longest, gap);
  if (!is_judged(a, w) || !is_too_long(gap * MS, limit_ms(a, w)))
    return;
  event e = gap_event(a, w);
  e.packet = a.packet;
  e.offset = a.offset;
  e.time = now(a);
  e.value = gap * MS;
  e.to_end = true;
  raise(a, std::move(e));
}

} // namespace

void start_watch(watch &w, recurs what, uint32_t id, audit_table table, bool is_opening) {
  w = {.id = id, .what = what, .table = table, .is_on = true, .is_opening = is_opening};
}

void stop_watch(audit_ctx &a, watch &w) {
  if (w.place != 0) {
    watch *last = a.touched.back();
    a.touched[w.place - 1] = last;
    last->place = w.place;
    a.touched.pop_back();
  }
  w.place = 0;
  w.is_on = false;
}

void cut_interval(watch &w) {
  (w.place != 0 ? w.is_cut : w.is_opening) = true;
}

void touch(audit_ctx &a, watch &w) {
  w.is_cut = false;
  w.last = a.packet;
  w.last_ahead = a.clock.ahead;
  if (w.place != 0)
    return;
  a.touched.push_back(&w);
  w.place = static_cast<uint32_t>(a.touched.size());
  w.first = a.packet;
  w.first_offset = a.offset;
  w.first_ahead = a.clock.ahead;
}

void came(audit_ctx &a, watch &w) {
  w.came = true;
  touch(a, w);
}

void begin_presence(audit_ctx &a, uint32_t pid) {
  came(a, a.records[pid].presence);
  a.pids[pid].touched = a.clock.knots + 1;
}

void judge_recurrence(audit_ctx &a) {
  std::vector<watch *> touched; // left alone whatever becomes of the judging
  touched.swap(a.touched);
  for (watch *w : touched)
    w->place = 0;
  for (watch *w : touched)
    judge(a, *w);
  touched.clear();
  touched.swap(a.touched); // its memory serves again
}

void judge_last_gaps(audit_ctx &a) {
  for (watch &w : a.tables.recurrence)
    if (w.is_on)
      judge_last_table(a, w);
  for (const uint32_t index : a.tables.order)
    judge_last_table(a, a.tables.programs[index]->recurrence);
  if (!a.clock.runs)
    return;
  for (uint32_t pid = 0; pid < TS_PIDS; ++pid)
    if (watch &w = a.records[pid].presence; w.is_on)
      judge_last_presence(a, w);
}
