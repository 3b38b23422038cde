#include "audit/continuity.h"

#include <algorithm>
#include <cstring>

#include "audit/findings.h"
#include "mpegts/packet.h"

namespace {

enum : uint8_t { MAX_HELD = 8, HELD_PACKETS = 64, CC_MASK = 15 };

uint8_t cc_gap(unsigned from, unsigned to) {
  return static_cast<uint8_t>((to - from) & CC_MASK);
}

uint8_t expected_cc(const pid_state &p) {
  return p.next_cc & CC_MASK;
}

uint8_t last_cc(const pid_state &p) {
  return static_cast<uint8_t>(p.next_cc - 1);
}

event loss_event(uint32_t pid, unsigned count, unsigned last, unsigned cc) {
  event e = {.kind = AUDIT_CC_LOSS, .pid = static_cast<int32_t>(pid)};
  e.sum = count;
  e.last_cc = static_cast<int8_t>(last);
  e.cc = static_cast<int8_t>(cc);
  return e;
}

void raise_loss(audit_ctx &a, event e) {
  a.records[static_cast<size_t>(e.pid)].lost += e.sum;
  raise(a, std::move(e));
}

void hold(audit_ctx &a, pid_state &p, const event &e) {
  held_loss &held = a.records[static_cast<size_t>(e.pid)].held;
  held = {.packet = e.packet,
          .offset = e.offset,
          .time = e.time,
          .missing = expected_cc(p),
          .count = static_cast<uint8_t>(e.sum),
          .last_cc = static_cast<uint8_t>(e.last_cc),
          .cc = static_cast<uint8_t>(e.cc),
          .after_sync = e.after_sync};
  p.flags |= PID_HOLDS;
}

// The packets of a held loss stay away: it is one, and what looked like the first of them coming
// late was a step back.
void release(audit_ctx &a, uint32_t pid) {
  pid_state &p = a.pids[pid];
  if (!(p.flags & PID_HOLDS))
    return;
  p.flags = static_cast<uint8_t>(p.flags & ~PID_HOLDS);
  const held_loss held = a.records[pid].held;
  event e = loss_event(pid, held.count, held.last_cc, held.cc);
  e.packet = held.packet;
  e.offset = held.offset;
  e.time = held.time;
  e.after_sync = held.after_sync;
  raise_loss(a, std::move(e));
  if (held.late != 0) {
    event back = loss_event(pid, cc_gap(held.resume, held.missing), (held.resume - 1u) & CC_MASK,
                            held.missing);
    back.packet = held.step_packet;
    back.offset = held.step_offset;
    back.time = held.step_time;
    a.lost += back.sum;
    raise_loss(a, std::move(back));
  }
  unpark_findings(a, pid);
}

// All of a held loss came, late.
void settle_as_order(audit_ctx &a, uint32_t pid) {
  pid_state &p = a.pids[pid];
  p.flags = static_cast<uint8_t>(p.flags & ~PID_HOLDS);
  const held_loss &held = a.records[pid].held;
  event e = {.kind = AUDIT_CC_ORDER,
             .pid = static_cast<int32_t>(pid),
             .packet = held.packet,
             .offset = held.offset,
             .time = held.time};
  e.sum = held.count;
  raise(a, std::move(e));
  unpark_findings(a, pid);
}

void lose(audit_ctx &a, pid_state &p, const counted_packet &pkt, uint8_t count, bool can_be_held) {
  event e = loss_event(pkt.pid, count, last_cc(p), pkt.cc);
  e.packet = a.packet;
  e.offset = a.offset;
  e.time = now(a);
  e.after_sync = pkt.previous <= a.sync_fault;
  a.lost += count;
  if (can_be_held && count <= MAX_HELD)
    hold(a, p, e);
  else
    raise_loss(a, std::move(e));
}

// True when the packet fits the late arrival of what a held loss misses, and is taken.
bool continues_held(audit_ctx &a, pid_state &p, const counted_packet &pkt) {
  held_loss &held = a.records[pkt.pid].held;
  const uint8_t expected = expected_cc(p);
  if (++held.age > HELD_PACKETS)
    return false;
  if (held.late == 0 && pkt.cc == held.missing && pkt.cc != expected) {
    held.late = 1;
    held.resume = expected;
    held.step_packet = a.packet;
    held.step_offset = a.offset;
    held.step_time = now(a);
    return true;
  }
  if (held.late == 0)
    return pkt.cc == expected;
  if (held.late < held.count && pkt.cc == expected) {
    ++held.late;
    return true;
  }
  if (held.late == held.count && pkt.cc == held.resume) {
    settle_as_order(a, pkt.pid);
    return true;
  }
  return false;
}

// A packet without payload does not move the counter.
void judge_without_payload(audit_ctx &a, pid_state &p, const counted_packet &pkt) {
  const uint8_t gap = cc_gap(last_cc(p), pkt.cc);
  if (gap != 0 && gap <= p.tei_skipped) {
    ++a.records[pkt.pid].explained;
  } else if (gap == 1) {
    event e = event_here(a, AUDIT_CC_AF, static_cast<int32_t>(pkt.pid));
    e.sum = 1;
    e.last_cc = static_cast<int8_t>(last_cc(p));
    e.cc = static_cast<int8_t>(pkt.cc);
    ++a.lost;
    raise(a, std::move(e));
  } else if (gap != 0) {
    release(a, pkt.pid);
    lose(a, p, pkt, gap, false);
  }
  p.next_cc = static_cast<uint8_t>(pkt.cc + 1);
  p.tei_skipped = 0;
}

ts_pkt in_run(const audit_ctx &a, uint64_t packet) {
  return ts_read(a.run.bytes + (packet - a.run.first) * a.run.stride);
}

uint64_t eight_bytes(const uint8_t *bytes) {
  uint64_t value;
  memcpy(&value, bytes, sizeof value);
  return value;
}

packet_sample sample_of(ts_pkt pkt) {
  const pkt_bytes payload = ts_get_payload(pkt);
  const size_t size = payload.size();
  packet_sample sample = {pkt.header << 8 | static_cast<uint32_t>(size), 0, 0};
  if (size >= 8) {
    sample.head_bytes = eight_bytes(payload.data());
    sample.tail_bytes = eight_bytes(payload.data() + size - 8);
  } else if (size > 0) {
    memcpy(&sample.head_bytes, payload.data(), size);
  }
  return sample;
}

bool is_repetition(const audit_ctx &a, const pid_state &p, const counted_packet &pkt) {
  if (pkt.cc != last_cc(p))
    return false;
  const packet_sample before =
      p.counted >= a.run.first ? sample_of(in_run(a, p.counted)) : a.samples[pkt.pid];
  return sample_of(in_run(a, a.packet)) == before;
}

void keep_sample(audit_ctx &a, uint32_t pid) {
  if (const uint64_t counted = a.pids[pid].counted; counted >= a.run.first)
    a.samples[pid] = sample_of(in_run(a, counted));
}

// A packet may come twice (2.4.3.3).
void count_repetition(audit_ctx &a, pid_state &p, const counted_packet &pkt) {
  if (p.duplicates == 0) {
    p.duplicates = 1;
    ++a.records[pkt.pid].duplicates;
    return;
  }
  event e = event_here(a, AUDIT_CC_DUP, static_cast<int32_t>(pkt.pid));
  e.cc = static_cast<int8_t>(pkt.cc);
  raise(a, std::move(e));
}

} // namespace

bool judge_counter(audit_ctx &a, const counted_packet &pkt) {
  pid_state &p = a.pids[pkt.pid];
  if (pkt.is_announced) {
    release(a, pkt.pid);
    ++a.records[pkt.pid].announced;
    take_counter(a, p, pkt.cc);
    return true;
  }
  if (!pkt.has_payload) {
    judge_without_payload(a, p, pkt);
    return true;
  }
  if (p.flags & PID_HOLDS) {
    if (continues_held(a, p, pkt)) {
      take_counter(a, p, pkt.cc);
      return true;
    }
    release(a, pkt.pid);
  }
  if (pkt.cc != expected_cc(p)) {
    if (is_repetition(a, p, pkt)) {
      count_repetition(a, p, pkt);
      return false;
    }
    const uint8_t gap = cc_gap(expected_cc(p), pkt.cc);
    if (gap <= p.tei_skipped)
      ++a.records[pkt.pid].explained;
    else
      lose(a, p, pkt, gap, true);
  }
  take_counter(a, p, pkt.cc);
  return true;
}

void end_run(audit_ctx &a) {
  if (a.seen_pids.size() <= a.packet + 1 - a.run.first) {
    for (const uint16_t pid : a.seen_pids)
      keep_sample(a, pid);
  } else {
    for (uint64_t packet = a.run.first; packet <= a.packet; ++packet)
      keep_sample(a, ts_pid(in_run(a, packet)));
  }
  a.run = {};
}

void skip_counter(audit_ctx &a, uint32_t pid) {
  uint8_t &skipped = a.pids[pid].tei_skipped;
  skipped = std::min<uint8_t>(static_cast<uint8_t>(skipped + 1), CC_MASK + 1);
}

void release_held_losses(audit_ctx &a) {
  for (uint32_t pid = 0; pid < TS_PIDS; ++pid)
    release(a, pid);
}
