// The records that an audit has at its end.
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "audit/indicators.h"
#include "audit/pmt.h"
#include "audit/rate.h"
#include "misc/sized_record.h"

namespace {

constexpr double BITS_PER_PACKET = TS_PKT_SIZE * 8;

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
  if (packets_of(a) == 0)
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

double ms_or_nan(bool is_there, int64_t ticks_27mhz) {
  return is_there ? static_cast<double>(ticks_27mhz) / 27e3 : NAN;
}

void copy_delays(const delay_stats &stats, double (&delays)[3]) {
  const bool any = stats.count != 0;
  delays[0] = any ? stats.min : NAN;
  delays[1] = any ? stats.sum / static_cast<double>(stats.count) : NAN;
  delays[2] = any ? stats.max : NAN;
}

// Programs that list a PID, in the order of the listings.
void list_programs_of(audit_ctx &a, uint16_t pid) {
  a.handed_out.clear();
  for (uint32_t next = a.records[pid].listings; next != 0;) {
    const listing &l = a.tables.listings[next - 1];
    a.handed_out.push_back(a.tables.programs[l.program]->number);
    next = l.next_of_pid;
  }
}

// The program by which a stream is known.
const program *program_of_stream(const audit_ctx &a, uint16_t pid) {
  for (uint32_t next = a.records[pid].listings; next != 0;) {
    const listing &l = a.tables.listings[next - 1];
    if (l.is_stream)
      return a.tables.programs[l.program].get();
    next = l.next_of_pid;
  }
  return nullptr;
}

// "V H.264", "A AAC eng"
void describe_stream(const audit_ctx &a, uint16_t pid, char (&what)[48]) {
  const program *pg = program_of_stream(a, pid);
  if (!pg)
    return;
  for_each_stream(pg->section, [&](const pmt_stream &s) {
    if (s.pid != pid || what[0] != '\0')
      return;
    char language[4] = {};
    copy_language(s.descriptors, language);
    const char *codec = codec_of_stream(s.type, s.descriptors);
    snprintf(what, sizeof what, "%c%s%s%s%s", kind_of_stream(s.type, s.descriptors),
             codec[0] ? " " : "", codec, language[0] ? " " : "", language);
  });
}

// What it is to the programs that list it, which have been listed.
void describe(const audit_ctx &a, uint16_t pid, char (&what)[48]) {
  const pid_record &rec = a.records[pid];
  constexpr const char *roles[] = {"", "PAT", "CAT", "PMT", "NIT", "SDT", "EIT", "RST", "TDT"};
  if (rec.role == psi_role::pmt && a.handed_out.size() == 1)
    snprintf(what, sizeof what, "PMT of %u", a.handed_out[0]);
  else if (rec.role != psi_role::none)
    snprintf(what, sizeof what, "%s", roles[static_cast<size_t>(rec.role)]);
  else if (rec.is_stream)
    describe_stream(a, pid, what);
  else if (rec.is_pcr)
    snprintf(what, sizeof what, "PCR");
  else if (pid == 0x1FFF)
    snprintf(what, sizeof what, "null");
  else
    snprintf(what, sizeof what, "%s", a.pids[pid].flags & PID_LISTED ? "listed" : "unreferenced");
}

audit_pid pid_row(audit_ctx &a, uint16_t pid) {
  const pid_state &p = a.pids[pid];
  const pid_record &rec = a.records[pid];
  audit_pid r = {};
  r.pid = pid;
  list_programs_of(a, pid);
  describe(a, pid, r.what);
  r.program_numbers = a.handed_out.data();
  r.programs = a.handed_out.size();
  r.packets = p.packets;
  r.scrambled = rec.scrambled;
  r.tei = rec.tei;
  r.duplicates = rec.duplicates;
  r.lost = rec.lost;
  r.pcrs = rec.pcrs;
  r.over_40ms = rec.intervals.over_40ms;
  r.share = static_cast<double>(p.packets) / static_cast<double>(packets_of(a) - a.bad_sync_bytes);
  r.bitrate = r.share * bitrate_of(a);
  r.bitrate_min = a.has_bitrates ? rec.bitrate_min : NAN;
  r.bitrate_max = a.has_bitrates ? rec.bitrate_max : NAN;
  const interval_stats &intervals = rec.intervals;
  const bool has_pcrs = intervals.count != 0;
  r.pcr_min_ms = ms_or_nan(has_pcrs, intervals.min);
  r.pcr_max_ms = ms_or_nan(has_pcrs, intervals.max);
  r.pcr_avg_ms = ms_or_nan(has_pcrs, intervals.sum) / static_cast<double>(intervals.count);
  copy_delays(rec.pts_delay, r.pts_delay_ms);
  copy_delays(rec.dts_delay, r.dts_delay_ms);
  const bool is_exact = rec.clock && rec.clock->constant_blocks != 0;
  r.accuracy_ns[0] = is_exact ? rec.clock->least_ns : NAN;
  r.accuracy_ns[1] = is_exact ? rec.clock->greatest_ns : NAN;
  const bool is_av = rec.kind == 'V' || rec.kind == 'A';
  r.longest_gap_ms = is_av && a.clock.runs ? rec.presence.longest * 1000 : NAN;
  return r;
}

} // namespace

int audit_get_report(audit_t audit, audit_report *report) {
  const audit_ctx &a = *audit;
  audit_report r = {};
  r.verdict = verdict_of(a);
  r.packets = packets_of(a);
  r.lost_bytes = a.lost_bytes;
  r.duration = a.clock.runs ? a.clock.now.t : NAN;
  r.bitrate = bitrate_of(a);
  r.cbr = is_constant_rate(a);
  r.spread = r.cbr < 0 ? NAN : a.spread;
  r.fails = a.findings.fails;
  memcpy(r.findings, a.findings.count, sizeof a.findings.count);
  r.undelivered = a.findings.undelivered;
  r.programs = a.tables.order.size();
  r.out_of_memory = a.out_of_memory;
  return give_record(r, report);
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
  return give_record(r, to);
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
  return give_record(r, to);
}

int audit_get_pid(audit_t audit, size_t index, audit_pid *to) {
  if (index >= audit->seen_pids.size())
    return EINVAL;
  return give_record(pid_row(*audit, audit->seen_pids[index]), to);
}

int audit_get_indicator(audit_t audit, size_t index, audit_indicator *to) {
  if (index >= indicator_count(*audit))
    return EINVAL;
  return give_record(indicator_record(*audit, index), to);
}
