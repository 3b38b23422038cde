// The records that an audit has at its end.
#include <cerrno>
#include <cstring>

#include "audit/pmt.h"
#include "audit/rate.h"

namespace {

constexpr double BITS_PER_PACKET = TS_PKT_SIZE * 8;

// Fills a record whose size the caller knows.
template <typename Record> int hand_out(Record *to, Record record) {
  if (to->size != sizeof record)
    return EINVAL;
  record.size = sizeof record;
  *to = record;
  return 0;
}

const program *program_at(const audit_ctx &a, size_t index) {
  if (index >= a.tables.order.size())
    return nullptr;
  return a.tables.programs[a.tables.order[index]].get();
}

size_t count_streams(const program &pg) {
  size_t count = 0;
  if (pg.has_pmt)
    for_each_stream(pg.section, [&](const pmt_stream &) { ++count; });
  return count;
}

audit_verdict verdict_of(const audit_ctx &a) {
  if (a.ending == AUDIT_INTERRUPTED)
    return AUDIT_INCOMPLETE;
  if (a.packet == 0)
    return AUDIT_NOTHING_CHECKED;
  if (a.out_of_memory)
    return AUDIT_INCOMPLETE;
  return a.findings.fails != 0 ? AUDIT_FAILED : AUDIT_PASS;
}

double bitrate_of(const audit_ctx &a) {
  return a.clock.runs ? BITS_PER_PACKET / a.clock.now.rate : NAN;
}

bool is_protected_by(std::span<const uint8_t> descriptors) {
  bool found = false;
  for_each_descriptor(descriptors, [&](uint8_t tag, std::span<const uint8_t> data) {
    found |= tag == 0x09 && data.size() >= 4;
  });
  return found;
}

// The code of an ISO_639_language_descriptor (2.6.18).
void copy_language(std::span<const uint8_t> descriptors, char (&language)[4]) {
  for_each_descriptor(descriptors, [&](uint8_t tag, std::span<const uint8_t> data) {
    if (tag == 0x0A && data.size() >= 3 && language[0] == 0)
      for (size_t i = 0; i < 3; ++i)
        language[i] = data[i] >= 0x20 && data[i] < 0x7F ? static_cast<char>(data[i]) : '?';
  });
}

} // namespace

int audit_get_report(audit_t audit, audit_report *report) {
  const audit_ctx &a = *audit;
  audit_report r = {};
  r.verdict = verdict_of(a);
  r.packets = a.packet;
  r.lost_bytes = a.lost_bytes;
  r.duration = a.clock.runs ? a.clock.now.t : NAN;
  r.bitrate = bitrate_of(a);
  r.cbr = is_constant_rate(a);
  r.spread = r.cbr < 0 ? NAN : a.spread;
  r.fails = a.findings.fails;
  memcpy(r.findings, a.findings.count, sizeof r.findings);
  r.undelivered = a.findings.undelivered;
  r.programs = a.tables.order.size();
  r.out_of_memory = a.out_of_memory;
  return hand_out(report, r);
}

int audit_get_program(audit_t audit, size_t index, audit_program *to) {
  const program *pg = program_at(*audit, index);
  if (!pg)
    return EINVAL;
  audit_program r = {};
  r.program_number = pg->number;
  r.pmt_pid = pg->pmt_pid;
  r.pcr_pid = pg->has_pmt ? pg->pcr_pid : -1;
  r.streams = count_streams(*pg);
  return hand_out(to, r);
}

int audit_get_stream(audit_t audit, size_t program, size_t index, audit_stream *to) {
  const struct program *pg = program_at(*audit, program);
  if (!pg || index >= count_streams(*pg))
    return EINVAL;
  const bool all_protected = is_protected_by(pmt_descriptors(pg->section));
  audit_stream r = {};
  size_t at = 0;
  for_each_stream(pg->section, [&](const pmt_stream &s) {
    if (at++ != index)
      return;
    r.pid = s.pid;
    r.stream_type = s.type;
    r.kind = kind_of_stream(s.type, s.descriptors);
    r.is_protected = all_protected || is_protected_by(s.descriptors);
    copy_language(s.descriptors, r.language);
  });
  return hand_out(to, r);
}

int audit_get_pid(audit_t audit, size_t index, audit_pid *to) {
  const audit_ctx &a = *audit;
  uint32_t pid = 0;
  for (; pid < TS_PIDS; ++pid)
    if (a.pids[pid].packets != 0 && index-- == 0)
      break;
  if (pid == TS_PIDS)
    return EINVAL;
  const pid_state &p = a.pids[pid];
  const pid_record &rec = a.records[pid];
  audit_pid r = {};
  r.pid = static_cast<uint16_t>(pid);
  r.packets = p.packets;
  r.scrambled = rec.scrambled;
  r.tei = rec.tei;
  r.duplicates = rec.duplicates;
  r.lost = rec.lost;
  r.pcrs = rec.pcrs;
  r.over_40ms = rec.intervals.over_40ms;
  r.share = static_cast<double>(p.packets) / static_cast<double>(a.packet);
  r.bitrate = r.share * bitrate_of(a);
  r.pcr_max_ms = rec.intervals.count != 0 ? static_cast<double>(rec.intervals.max) / 27e3 : NAN;
  return hand_out(to, r);
}

int audit_get_indicator(audit_t, size_t, audit_indicator *) {
  return EINVAL;
}
