#include "audit/audit.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <utility>

#include "audit/bitrates.h"
#include "audit/continuity.h"
#include "audit/ctx.h"
#include "audit/findings.h"
#include "audit/pcr.h"
#include "audit/presence.h"
#include "audit/rate.h"
#include "audit/recurrence.h"
#include "audit/sections.h"
#include "audit/stamps.h"
#include "audit/tables.h"
#include "misc/sized_record.h"
#include "mpegts/packet.h"

namespace {

enum : uint32_t { PID_NULL = 0x1FFF };

// How many packets ahead the first bytes of one are fetched from memory, and then from the second
// cache into the first. Not a function: one without effect would be left out.
enum : size_t { FETCH_FAR = 64, FETCH_NEAR = 8 };

// The adaptation field (ISO/IEC 13818-1, 2.4.3.4), as far as it fits its packet.
struct adaptation {
  size_t payload_at = 4;
  bool is_announced = false; // discontinuity_indicator
  bool has_pcr = false;
  bool fits = true;
};

adaptation read_adaptation(ts_pkt pkt) {
  const size_t length = pkt.adaptation_length;
  const size_t longest = ts_payload_flag(pkt) ? 182 : 183;
  if (length > longest)
    return {.payload_at = TS_PKT_SIZE, .fits = false};
  return {.payload_at = 5 + length,
          .is_announced = ts_discontinuity(pkt),
          .has_pcr = ts_has_whole_pcr(pkt)};
}

// What is judged when the clock knows the time.
void at_knot(audit_ctx &a) {
  judge_recurrence(a);
  close_findings(a);
  measure_bitrates(a);
  a.due = a.is_stopped ? 0 : a.clock.now.packet + KNOT_PACKETS;
}

void take_damaged(audit_ctx &a, uint32_t pid) {
  ++a.records[pid].tei;
  raise(a, event_here(a, AUDIT_TEI, static_cast<int32_t>(pid)));
  skip_counter(a, pid);
}

void take_flagged(audit_ctx &a, pid_state &p, uint32_t pid) {
  if (!(p.flags & PID_LISTED))
    take_unlisted(a, pid);
  if (p.flags & PID_AWAITED)
    take_awaited(a, pid);
}

// Most packets of a listed stream: nothing but payload, and the counter expected.
bool is_plain(ts_pkt pkt, const pid_state &p) {
  constexpr uint32_t mask = 0xC000FF, payload_only = 0x10;
  constexpr uint8_t looked_at = PID_PSI | PID_HOLDS | PID_AWAITED | PID_LISTED;
  return (pkt.header & mask) == (payload_only | (p.next_cc & 15u)) && p.next_cc != 0 &&
         (p.flags & looked_at) == PID_LISTED;
}

void take_plain(audit_ctx &a, pid_state &p, uint32_t pid) {
  ++p.packets;
  p.seen = a.packet;
  take_counter(a, p, p.next_cc & 15);
  if (p.flags & PID_WATCHED)
    touch_presence(a, p, pid);
}

void take(audit_ctx &a, ts_pkt pkt, pid_state &p, uint32_t pid) {
  if (p.packets++ == 0) [[unlikely]]
    a.seen_pids.push_back(static_cast<uint16_t>(pid));
  if (ts_transport_error(pkt)) [[unlikely]]
    return take_damaged(a, pid);
  if (pid == PID_NULL)
    return;
  const bool is_scrambled = ts_is_scrambled(pkt);
  if (is_scrambled) [[unlikely]]
    take_scrambled(a, pid);

  adaptation af;
  if (ts_adaptation_flag(pkt)) {
    af = read_adaptation(pkt);
    if (!af.fits) [[unlikely]]
      raise(a, event_here(a, AUDIT_AF_SYNTAX, static_cast<int32_t>(pid)));
  } else if (!ts_payload_flag(pkt)) [[unlikely]] {
    raise(a, event_here(a, AUDIT_AFC_RESERVED, static_cast<int32_t>(pid)));
    return;
  }
  const bool has_payload = ts_payload_flag(pkt);
  if (!has_payload)
    af.payload_at = TS_PKT_SIZE;

  counted_packet counted = {.pid = pid,
                            .previous = std::exchange(p.seen, a.packet),
                            .cc = static_cast<uint8_t>(ts_cc(pkt)),
                            .is_announced = af.is_announced,
                            .has_payload = has_payload};
  const bool is_expected = ((p.next_cc - !has_payload) & 15) == counted.cc;
  const bool follows = is_expected && !af.is_announced;
  if ((follows && has_payload && !(p.flags & PID_HOLDS)) || p.next_cc == 0) [[likely]]
    take_counter(a, p, counted.cc);
  else if (!judge_counter(a, counted))
    return;

  const auto pid16 = static_cast<uint16_t>(pid);
  if (af.is_announced) [[unlikely]]
    restart_steps(a, pid16);
  if (af.has_pcr) {
    const taken_pcr taken = take_pcr(a, pid16, ts_get_pcr(pkt), af.is_announced);
    if (taken.step.is_knot)
      at_knot(a);
    judge_by_pcr(a, pid16, taken);
  }
  const pkt_bytes payload(pkt.bytes + af.payload_at, TS_PKT_SIZE - af.payload_at);
  if (p.flags & PID_PSI) {
    if (is_scrambled)
      take_scrambled_psi_packet(a, pid16);
    else
      take_psi_packet(a, pid16, payload, ts_unit_start(pkt), follows);
  }
  if (p.flags & PID_WATCHED)
    touch_presence(a, p, pid);
  if ((p.flags & (PID_LISTED | PID_AWAITED)) != PID_LISTED) [[unlikely]]
    take_flagged(a, p, pid);
  if (ts_unit_start(pkt) && p.flags & PID_STAMPED && !is_scrambled)
    take_pes_header(a, pid16, payload);
}

// False when a callback has asked for the end, which makes the next knot due.
bool end_packet(audit_ctx &a) {
  if (a.packet < a.due) [[likely]]
    return true;
  if (!a.is_stopped) {
    clock_estimated_knot(a.clock, a.packet);
    at_knot(a);
  }
  return !a.is_stopped;
}

// The one way in: what was being done when memory ran out is not done, the rest goes on.
template <typename Work> int guarded(audit_t audit, Work work) {
  try {
    work(*audit);
    return 0;
  } catch (const std::bad_alloc &) {
    audit->out_of_memory = true;
    return ENOMEM;
  }
}

// Why nothing is taken any more.
int refusal(const audit_ctx &a) {
  return a.has_ended ? EINVAL : a.is_stopped ? ECANCELED : 0;
}

// The same for what is handed over.
template <typename Work> int taken(audit_t audit, Work work) {
  if (const int code = refusal(*audit))
    return code;
  const int rc = guarded(audit, work);
  return audit->is_stopped ? ECANCELED : rc;
}

struct run_taken {
  size_t count;
  int rc;
};

run_taken take_run(audit_t audit, const uint8_t *bytes, size_t count, size_t stride,
                   uint64_t offset, bool to_bad_sync) {
  run_taken taken = {0, refusal(*audit)};
  if (taken.rc != 0)
    return taken;
  audit->run = {bytes, stride, audit->packet + 1};
  for (bool is_over = count == 0; !is_over;) {
    const int rc = guarded(audit, [&](audit_ctx &a) {
      for (bool goes_on = true; goes_on && taken.count < count; goes_on = end_packet(a)) {
        const size_t at = stride * taken.count;
        __builtin_prefetch(bytes + at + FETCH_FAR * stride, 0, 2);
        __builtin_prefetch(bytes + at + FETCH_NEAR * stride);
        const ts_pkt pkt = ts_read(bytes + at);
        if (to_bad_sync && taken.count != 0 && !ts_in_sync(pkt)) [[unlikely]]
          break;
        ++taken.count;
        ++a.packet;
        a.offset = offset + at;
        const uint32_t pid = ts_pid(pkt);
        pid_state &p = a.pids[pid];
        if (is_plain(pkt, p)) [[likely]]
          take_plain(a, p, pid);
        else
          take(a, pkt, p, pid);
      }
      is_over = true;
    });
    taken.rc = rc != 0 ? rc : taken.rc;
  }
  end_run(*audit);
  if (audit->is_stopped)
    taken.rc = ECANCELED;
  return taken;
}

bool is_limit(double value) {
  return value >= 0 && value <= 1e9;
}

bool is_possible(const audit_config &cfg) {
  return static_cast<size_t>(cfg.profile) < AUDIT_PROFILES &&
         std::all_of(cfg.limits, cfg.limits + AUDIT_LIMITS, is_limit);
}

audit_t new_audit(const audit_config &cfg) {
  auto audit = std::make_unique<audit_ctx>();
  audit->cfg = cfg;
  audit->seen_pids.reserve(TS_PIDS);
  audit->handed_out.reserve(MAX_PID_LISTINGS);
  audit->skipped = audit->packet = cfg.first_packet > 1 ? cfg.first_packet - 1 : 0;
  start_tables(*audit);
  return audit.release();
}

void judge_end(audit_ctx &a) {
  if (packets_of(a) == 0)
    return; // nothing was there that anything could be missed in
  release_held_losses(a);
  if (a.clock.runs) {
    clock_estimated_knot(a.clock, a.packet);
    at_knot(a);
  }
  judge_last_rates(a);
  judge_last_gaps(a);
  judge_last_pcrs(a);
  judge_absent(a);
  judge_unreferenced(a);
  judge_missing_cat(a);
}

} // namespace

audit_t audit_init(const audit_config *cfg, int *err) {
  audit_config known;
  int code = EINVAL;
  try {
    if (take_record(*cfg, known) && is_possible(known))
      return new_audit(known);
  } catch (const std::bad_alloc &) {
    code = ENOMEM;
  }
  if (err)
    *err = code;
  return nullptr;
}

void audit_free(audit_t audit) {
  if (!audit)
    return;
  for (uint32_t pid = 0; pid < TS_PIDS; ++pid)
    delete audit->records[pid].gather;
  for (const clock_record *clock : audit->clocks)
    delete clock;
  delete audit;
}

int audit_packet(audit_t audit, const uint8_t *bytes, uint64_t offset) {
  return audit_packets(audit, bytes, 1, TS_PKT_SIZE, offset);
}

int audit_packets(audit_t audit, const uint8_t *bytes, size_t count, size_t stride,
                  uint64_t offset) {
  return take_run(audit, bytes, count, stride, offset, false).rc;
}

int audit_follow(audit_t audit, const uint8_t *bytes, size_t count, size_t stride, uint64_t offset,
                 size_t *taken) {
  const run_taken run = take_run(audit, bytes, count, stride, offset, true);
  *taken = run.count;
  return run.rc;
}

int audit_leading(audit_t audit, uint64_t bytes) {
  return taken(audit, [&](audit_ctx &a) {
    event e = {.kind = AUDIT_LEADING, .packet = 1, .offset = 0, .time = NAN};
    e.sum = bytes;
    raise(a, std::move(e));
  });
}

int audit_sync_byte(audit_t audit, uint64_t offset) {
  return taken(audit, [&](audit_ctx &a) {
    a.offset = offset;
    a.sync_fault = ++a.packet;
    ++a.bad_sync_bytes;
    raise(a, event_here(a, AUDIT_SYNC_BYTE, -1));
    end_packet(a);
  });
}

int audit_sync_loss(audit_t audit, uint64_t offset, uint64_t lost_bytes) {
  return taken(audit, [&](audit_ctx &a) {
    a.sync_fault = a.packet;
    ++a.sync_losses;
    a.lost_bytes += lost_bytes;
    event e = {.kind = AUDIT_SYNC_LOSS,
               .packet = a.packet + 1,
               .offset = offset,
               .time = clock_time(a.clock, a.packet + 1)};
    e.sum = lost_bytes;
    raise(a, std::move(e));
  });
}

void audit_stop(audit_t audit) {
  audit->is_stopped = true;
  audit->due = 0;
}

int audit_end(audit_t audit, audit_ending ending) {
  if (static_cast<size_t>(ending) > AUDIT_INTERRUPTED)
    return EINVAL;
  if (std::exchange(audit->has_ended, true))
    return 0;
  audit->ending = ending;
  std::ranges::sort(audit->seen_pids);
  const int judged = guarded(audit, judge_end);
  const int closed = guarded(audit, close_all_findings);
  return judged != 0 ? judged : closed;
}
