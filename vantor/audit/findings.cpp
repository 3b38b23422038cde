#include "audit/findings.h"

#include <algorithm>
#include <new>
#include <utility>

#include "audit/indicators.h"
#include "audit/listing.h"

namespace {

constexpr double JOIN_S = 1;            // events that far apart, or closer, are one finding
constexpr uint64_t JOIN_PACKETS = 5000; // the same without a clock

double or_zero(double time) {
  return std::isnan(time) ? 0 : time;
}

uint64_t key_of(const event &e) {
  return static_cast<uint64_t>(e.kind) << 48 | static_cast<uint64_t>(e.table) << 40 |
         static_cast<uint64_t>(e.program_number + 1) << 16 | static_cast<uint64_t>(e.pid + 1);
}

audit_severity severity_of(const event &e) {
  const bool is_si =
      e.kind == AUDIT_PSI_GAP ? e.table > AUDIT_PMT : e.kind == AUDIT_PSI_TABLE && e.pid > 1;
  return is_si ? AUDIT_WARN : audit_kind_severity(e.kind);
}

bool joins(const audit_ctx &a, const open_finding &finding, const event &e) {
  if (!a.clock.runs)
    return e.packet <= finding.last_packet + JOIN_PACKETS;
  return or_zero(e.time) - or_zero(finding.last_time) <= JOIN_S;
}

void join(open_finding &finding, const event &e) {
  finding.events += e.count;
  finding.last_packet = e.packet;
  finding.last_time = e.time;
  finding.first.sum += e.sum;
  finding.first.counted += e.counted;
  if (std::isnan(finding.first.value) || std::abs(e.value) > std::abs(finding.first.value))
    finding.first.value = e.value;
}

void count_finding(findings_state &f, const event &e) {
  ++f.count[e.kind];
  f.fails += severity_of(e) == AUDIT_FAIL;
}

uint32_t take_slot(findings_state &f) {
  if (f.free.empty()) {
    f.open.emplace_back();
    f.free.reserve(f.open.capacity()); // what is open can be closed, whatever memory there is then
    f.closed.reserve(f.open.capacity());
    return static_cast<uint32_t>(f.open.size() - 1);
  }
  const uint32_t id = f.free.back();
  f.free.pop_back();
  return id;
}

// An event that begins a finding. One more than can be kept is only counted.
void open_new(audit_ctx &a, uint64_t key, event e) {
  findings_state &f = a.findings;
  count_finding(f, e);
  if (f.open.size() - f.free.size() >= MAX_OPEN_FINDINGS) {
    ++f.undelivered;
    return;
  }
  if (e.program_number < 0)
    e.program_number = sole_program(a, e.pid);
  const uint8_t indicator = indicator_index(a, e);
  const uint32_t id = take_slot(f);
  open_finding &finding = f.open[id];
  finding.key = key;
  finding.serial = f.opened++;
  finding.last_packet = e.packet;
  finding.events = e.count;
  finding.last_time = e.time;
  finding.indicator = indicator;
  finding.next_parked = 0;
  finding.first = std::move(e);
  f.latest[key] = id;
  f.queue.push({or_zero(finding.last_time), id});
}

audit_list list_of(const std::vector<uint16_t> &items) {
  return {items.data(), items.size()};
}

// The fields that sums and greatest values are told in, by kind.
void fill_values(audit_finding &record, const event &e) {
  switch (e.kind) {
  case AUDIT_SYNC_LOSS:
    record.lost_bytes = e.sum;
    break;
  case AUDIT_CC_LOSS:
  case AUDIT_RATE_LOSS:
    record.lost = e.sum;
    record.counted = e.counted;
    break;
  case AUDIT_CC_ORDER:
    record.displaced = e.sum;
    break;
  case AUDIT_CC_AF:
    record.moved = e.sum;
    break;
  case AUDIT_PID_UNREFERENCED:
    record.packets = e.sum;
    break;
  case AUDIT_LEADING:
    record.bytes = e.sum;
    break;
  case AUDIT_PCR_JUMP:
    record.jump_ms = e.value;
    break;
  case AUDIT_STAMP_BACK:
  case AUDIT_STAMP_JUMP:
    record.step_ms = e.value;
    break;
  case AUDIT_PCR_ACCURACY:
    record.ns = e.value;
    break;
  default:
    record.ms = e.value;
  }
}

audit_finding record_of(const open_finding &finding) {
  const event &e = finding.first;
  audit_finding record = {};
  record.size = sizeof record;
  record.kind = e.kind;
  record.severity = severity_of(e);
  record.pid = e.pid;
  record.program_number = e.program_number;
  record.packet = e.packet;
  record.offset = e.offset;
  record.time = e.time;
  record.last_packet = finding.last_packet;
  record.last_time = finding.last_time;
  record.events = finding.events;
  record.ms = record.jump_ms = record.step_ms = record.ns = NAN;
  record.table_id = e.table_id;
  record.last_cc = e.last_cc;
  record.cc = e.cc;
  record.after_sync = e.after_sync;
  record.to_end = e.to_end;
  record.never = e.never;
  record.table = e.table;
  record.indicator = indicator_id(finding.indicator);
  fill_values(record, e);
  return record;
}

void deliver(audit_ctx &a, const open_finding &finding) {
  count_for_indicator(a, finding.indicator, finding.first);
  if (a.findings.delivered[finding.first.kind] >= MAX_DELIVERED) {
    ++a.findings.undelivered;
    return;
  }
  ++a.findings.delivered[finding.first.kind];
  if (!a.cfg.on_finding)
    return;
  audit_finding record = record_of(finding);
  audit_change change = {};
  if (const change_lists *lists = finding.first.change.get()) {
    change = {sizeof change,           list_of(lists->added),       list_of(lists->removed),
              list_of(lists->retyped), list_of(lists->descriptors), lists->pcr_pid_old,
              lists->pcr_pid_new};
    record.change = &change;
  }
  a.cfg.on_finding(a.cfg.opaque, &record);
}

// Delivers what has been closed, in the order of packets, and forgets it.
void deliver_closed(audit_ctx &a) {
  findings_state &f = a.findings;
  std::vector<uint32_t> &ids = f.closed;
  std::ranges::sort(ids, [&](uint32_t x, uint32_t y) {
    const open_finding &p = f.open[x], &q = f.open[y];
    return p.first.packet != q.first.packet ? p.first.packet < q.first.packet : p.serial < q.serial;
  });
  for (const uint32_t id : ids) {
    open_finding &finding = f.open[id];
    try {
      deliver(a, finding);
    } catch (const std::bad_alloc &) { // of who takes it
      a.out_of_memory = true;
    }
    finding.first.change.reset();
    if (const auto latest = f.latest.find(finding.key);
        latest != f.latest.end() && latest->second == id)
      f.latest.erase(latest);
    f.free.push_back(id);
  }
  ids.clear();
}

bool waits_for_held_loss(const audit_ctx &a, const event &e) {
  return e.kind == AUDIT_CC_LOSS && a.pids[static_cast<size_t>(e.pid)].flags & PID_HOLDS;
}

void park(audit_ctx &a, uint32_t id) {
  open_finding &finding = a.findings.open[id];
  uint32_t &first = a.records[static_cast<size_t>(finding.first.pid)].parked;
  finding.next_parked = first;
  first = id + 1;
}

} // namespace

void raise(audit_ctx &a, event e) {
  const uint64_t key = key_of(e);
  const auto latest = a.findings.latest.find(key);
  if (latest != a.findings.latest.end() && joins(a, a.findings.open[latest->second], e))
    join(a.findings.open[latest->second], e);
  else
    open_new(a, key, std::move(e));
}

void close_findings(audit_ctx &a) {
  findings_state &f = a.findings;
  while (!f.queue.empty() && a.clock.now.t - f.queue.top().last_time > JOIN_S) {
    const uint32_t id = f.queue.top().id;
    const double last_time = or_zero(f.open[id].last_time);
    f.queue.pop();
    if (a.clock.now.t - last_time <= JOIN_S)
      f.queue.push({last_time, id});
    else if (waits_for_held_loss(a, f.open[id].first))
      park(a, id);
    else
      f.closed.push_back(id);
  }
  if (!f.closed.empty())
    deliver_closed(a);
}

void unpark_findings(audit_ctx &a, uint32_t pid) {
  findings_state &f = a.findings;
  for (uint32_t next = std::exchange(a.records[pid].parked, 0); next != 0;) {
    const uint32_t id = next - 1;
    next = std::exchange(f.open[id].next_parked, 0);
    f.queue.push({or_zero(f.open[id].last_time), id});
  }
}

void close_all_findings(audit_ctx &a) {
  findings_state &f = a.findings;
  for (; !f.queue.empty(); f.queue.pop())
    f.closed.push_back(f.queue.top().id);
  deliver_closed(a);
}
