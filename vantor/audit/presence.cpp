#include "audit/presence.h"

#include <algorithm>

#include "audit/findings.h"
#include "audit/recurrence.h"

namespace {

constexpr double ABSENT_S = 10, UNREFERENCED_S = 0.5, SCRAMBLED_S = 1;

double or_zero(double time) {
  return std::isnan(time) ? 0 : time;
}

} // namespace

void take_scrambled(audit_ctx &a, uint32_t pid) {
  ++a.records[pid].scrambled;
  if (a.scrambled.packet == 0)
    a.scrambled = {a.packet, a.offset, now(a), static_cast<int32_t>(pid)};
  cut_interval(a.records[pid].pts);
  if (a.pids[pid].flags & PID_UNPROTECTED)
    raise(a, event_here(a, AUDIT_SCRAMBLED, static_cast<int32_t>(pid)));
}

void take_unlisted(audit_ctx &a, uint32_t pid) {
  pid_record &rec = a.records[pid];
  rec.last_time = or_zero(now(a));
  if (rec.first_packet != 0)
    return;
  rec.first_packet = a.packet;
  rec.first_offset = a.offset;
  rec.first_time = now(a);
}

void take_awaited(audit_ctx &a, uint32_t pid) {
  a.records[pid].presence.came = true;
  a.pids[pid].flags = static_cast<uint8_t>(a.pids[pid].flags & ~PID_AWAITED);
}

void judge_absent(audit_ctx &a) {
  for (uint32_t pid = 0; pid < TS_PIDS; ++pid)
    if (a.pids[pid].flags & PID_AWAITED && a.clock.runs &&
        a.clock.now.t - a.records[pid].presence.last_t >= ABSENT_S)
      raise(a, event_here(a, AUDIT_PID_ABSENT, static_cast<int32_t>(pid)));
}

bool has_all_pmts(const audit_ctx &a) {
  return !a.tables.order.empty() && std::ranges::all_of(a.tables.order, [&](uint32_t index) {
    return a.tables.programs[index]->has_pmt;
  });
}

void judge_unreferenced(audit_ctx &a) {
  if (!has_all_pmts(a) || a.cfg.profile == AUDIT_ATSC)
    return;
  for (uint32_t pid = 0; pid < TS_PIDS; ++pid) {
    const pid_record &rec = a.records[pid];
    if (a.pids[pid].flags & PID_LISTED || a.pids[pid].packets == 0 ||
        rec.last_time - or_zero(rec.first_time) <= UNREFERENCED_S)
      continue;
    event e = event_here(a, AUDIT_PID_UNREFERENCED, static_cast<int32_t>(pid));
    e.packet = rec.first_packet;
    e.offset = rec.first_offset;
    e.time = rec.first_time;
    e.sum = a.pids[pid].packets;
    raise(a, std::move(e));
  }
}

void judge_missing_cat(audit_ctx &a) {
  const bool is_long = a.clock.runs ? a.clock.now.t > SCRAMBLED_S : packets_of(a) > KNOT_PACKETS;
  if (a.scrambled.packet == 0 || a.tables.cat_came || !is_long)
    return;
  event e = event_here(a, AUDIT_CAT_MISSING, a.scrambled.pid);
  e.packet = a.scrambled.packet;
  e.offset = a.scrambled.offset;
  e.time = a.scrambled.time;
  raise(a, std::move(e));
}
