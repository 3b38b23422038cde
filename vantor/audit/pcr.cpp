#include "audit/pcr.h"

#include <algorithm>

#include "audit/findings.h"
#include "audit/rate.h"
#include "audit/recurrence.h"
#include "audit/samples.h"
#include "audit/stamps.h"

namespace {

enum : int64_t {
  TICKS_PER_MS = 27'000,
  JUMP = 2'700'000,
  MEASURED = 27'000'000,
  RECOMMENDED = 40 * TICKS_PER_MS
};

constexpr double STOPPED_S = 1; // of other packets behind the last PCR

void measure(interval_stats &stats, int64_t d) {
  stats.min = stats.count == 0 ? d : std::min(stats.min, d);
  stats.max = std::max(stats.max, d);
  stats.sum += d;
  ++stats.count;
  stats.over_40ms += d > RECOMMENDED;
}

bool is_jump(const pcr_step &step) {
  return step.d < 0 || (step.d > JUMP && !step.is_good && !step.is_expected);
}

// `e` is of the time before the PCR was taken.
void judge_interval(audit_ctx &a, event e, const pcr_step &step) {
  const double limit = a.cfg.limits[AUDIT_PCR_MS];
  e.value = static_cast<double>(step.d) / 27e3;
  if (is_jump(step))
    e.kind = AUDIT_PCR_JUMP;
  else if (limit == 0 || e.value <= limit)
    return;
  raise(a, std::move(e));
}

void judge_last_pcr(audit_ctx &a, uint32_t pid) {
  const pid_record &rec = a.records[pid];
  event e = event_here(a, AUDIT_PCR_GAP, static_cast<int32_t>(pid));
  e.to_end = true;
  if (rec.pcrs == 0) {
    const bool is_long = a.clock.runs ? a.clock.now.t > STOPPED_S : packets_of(a) > KNOT_PACKETS;
    if (a.pids[pid].packets == 0 || !is_long)
      return;
    e.never = true;
  } else {
    const double silent = rec.presence.last_t - rec.pcr_watch.last_t;
    if (!a.clock.runs || !rec.is_stream || silent <= STOPPED_S)
      return;
    e.value = silent * 1000;
  }
  raise(a, std::move(e));
}

} // namespace

taken_pcr take_pcr(audit_ctx &a, uint16_t pid, int64_t pcr, bool is_announced) {
  pid_record &rec = a.records[pid];
  taken_pcr taken = {.before = rec.pcr, .is_announced = is_announced};
  event before = event_here(a, AUDIT_PCR_GAP, pid);
  taken.step = clock_pcr(a.clock, rec.pcr, pid, a.packet, pcr, is_announced);
  ++rec.pcrs;
  if (!rec.pcr_watch.is_on)
    start_watch(rec.pcr_watch, recurs::pcr, pid, AUDIT_NO_TABLE, true);
  rec.announced_pcrs += is_announced;
  if (taken.step.is_interval && !is_announced) {
    if (taken.step.d > 0 && taken.step.d <= MEASURED) {
      measure(rec.intervals, taken.step.d);
      hand_sample(a, AUDIT_PCR_INTERVAL, pid, now(a), static_cast<double>(taken.step.d) / 27e3);
    }
    if (rec.is_pcr)
      judge_interval(a, std::move(before), taken.step);
  }
  return taken;
}

void judge_by_pcr(audit_ctx &a, uint16_t pid, const taken_pcr &taken) {
  pid_record &rec = a.records[pid];
  touch(a, rec.pcr_watch);
  if (rec.clock)
    judge_waiting_stamps(a, *rec.clock, taken.before, taken.step,
                         taken.is_announced || is_jump(taken.step));
  if (!rec.is_pcr)
    return;
  if (clock_record *clock = clock_record_of(a, pid))
    take_rate_interval(a, *clock, taken.step);
}

void judge_last_pcrs(audit_ctx &a) {
  if (a.cfg.limits[AUDIT_PCR_MS] == 0)
    return;
  for (uint32_t pid = 0; pid < TS_PIDS; ++pid)
    if (a.records[pid].is_pcr)
      judge_last_pcr(a, pid);
}
