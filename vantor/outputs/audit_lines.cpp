#include "outputs/audit_lines.h"

#include <cinttypes>
#include <cmath>

#include "outputs/audit_fields.h"
#include "outputs/audit_words.h"

namespace {

enum : size_t { LIST_MOST = 12 }; // items of a list that a line tells

// The greatest of several events, or that of the only one.
std::string at_most(const audit_finding &f, double value, const char *unit = "ms") {
  return (f.events > 1 ? "up to " : "") + in_units(value, unit);
}

std::string list_text(const audit_list &list, const char *separator) {
  std::string items;
  for (size_t i = 0; i < list.count && i < LIST_MOST; ++i)
    items += (i == 0 ? "" : separator) + std::to_string(list.items[i]);
  return items;
}

void tell_list(std::string &line, const char *what, const audit_list &list, const char *thing) {
  if (list.count == 0)
    return;
  line += line.empty() ? "" : ", ";
  line += std::string(thing) + (list.count == 1 ? " " : "s ") + list_text(list, ", ");
  if (list.count > LIST_MOST)
    line += " and " + std::to_string(list.count - LIST_MOST) + " more";
  line += std::string(" ") + what;
}

// What changed in a table, behind a colon.
std::string change_text(const audit_change &c, bool is_pat) {
  const char *thing = is_pat ? "program" : "PID";
  std::string line;
  tell_list(line, "added", c.added, thing);
  tell_list(line, "removed", c.removed, thing);
  tell_list(line, "retyped", c.retyped, thing);
  if (c.pcr_pid_new >= 0)
    line +=
        text("%sPCR_PID %d instead of %d", line.empty() ? "" : ", ", c.pcr_pid_new, c.pcr_pid_old);
  tell_list(line, "with other descriptors", c.descriptors, thing);
  return line.empty() ? line : ": " + line;
}

std::string table_id_text(const audit_finding &f) {
  return f.table_id >= 0 ? text(" of table_id 0x%02X", static_cast<unsigned>(f.table_id)) : "";
}

// For how long there was nothing.
std::string silence(const audit_finding &f, const std::string &what) {
  if (f.never || !std::isfinite(f.ms))
    return "no " + what + " at all";
  return "no " + what + " for " + at_most(f, f.ms) + (f.to_end ? ", to the end" : "");
}

std::string cc_loss(const audit_finding &f) {
  return counted(f.lost, "packet") + " lost" + (f.after_sync ? " where sync was lost" : "");
}

std::string rate_loss(const audit_finding &f) {
  std::string line = counted(f.lost, "packet") + " missing by the constant rate";
  return line + (f.counted != 0 ? text(", beside %" PRIu64 " that counters show", f.counted) : "");
}

std::string pcr_jump(const audit_finding &f) {
  return std::string("PCR jumps ") + (f.jump_ms < 0 ? "back" : "ahead") + " by " +
         at_most(f, f.jump_ms) + ", not announced";
}

std::string where(const audit_finding &f) {
  if (f.kind == AUDIT_LEADING || f.kind == AUDIT_PID_ABSENT || f.to_end)
    return "";
  if (f.kind == AUDIT_PID_UNREFERENCED)
    return text(", the first at packet %" PRIu64, f.packet);
  if (f.events == 1)
    return text(" at packet %" PRIu64, f.packet);
  return text(", %" PRIu64 " times from packet %" PRIu64 " to %" PRIu64, f.events, f.packet,
              f.last_packet);
}

// Fields as key=value. Lists are cut, so that the line stays whole.
class terse_fields : public field_sink {
public:
  explicit terse_fields(std::string &target) : line(target) {}

  void count(const char *key, uint64_t value) override { put(key, std::to_string(value)); }
  void number(const char *key, int32_t value) override {
    if (value >= 0)
      put(key, std::to_string(value));
  }
  void measure(const char *key, double value) override {
    if (std::isfinite(value))
      put(key, text("%.3f", value));
  }
  void flag(const char *key, bool value) override { put(key, value ? "true" : "false"); }
  void word(const char *key, const char *value) override {
    if (value)
      put(key, value);
  }
  void list(const char *key, const audit_list &list) override {
    if (list.count != 0)
      put(key, list_text(list, ",") + (list.count > LIST_MOST ? ",..." : ""));
  }

private:
  void put(const char *key, const std::string &value) {
    line += std::string(" ") + key + "=" + value;
  }

  std::string &line;
};

} // namespace

std::string what_happened(const audit_finding &f) {
  switch (f.kind) {
  case AUDIT_SYNC_LOSS:
    return "sync lost, " + counted(f.lost_bytes, "byte") + " skipped";
  case AUDIT_SYNC_BYTE:
    return "wrong sync byte";
  case AUDIT_TEI:
    return "transport_error_indicator set";
  case AUDIT_CC_LOSS:
    return cc_loss(f);
  case AUDIT_CC_DUP:
    return "the same packet more than twice";
  case AUDIT_CC_ORDER:
    return counted(f.displaced, "packet") + " out of order";
  case AUDIT_CC_AF:
    return text("continuity counter moved by %" PRIu64 " without payload", f.moved);
  case AUDIT_PSI_CRC:
    return "wrong CRC_32 in a section" + table_id_text(f);
  case AUDIT_PSI_SYNTAX:
    return "malformed section" + table_id_text(f);
  case AUDIT_PSI_TABLE:
    return "section" + table_id_text(f) + " does not belong here";
  case AUDIT_PSI_SCRAMBLED:
    return "table scrambled";
  case AUDIT_PSI_VERSION:
    return std::string(f.table_id == 0 ? "PAT" : "PMT") + " changed without a new version_number" +
           change_text(*f.change, f.table_id == 0);
  case AUDIT_PSI_GAP:
    return silence(f, audit_table_name(f.table));
  case AUDIT_PCR_GAP:
    return silence(f, "PCR");
  case AUDIT_PCR_JUMP:
    return pcr_jump(f);
  case AUDIT_PCR_ACCURACY:
    return "PCR off its line by " + at_most(f, f.ns, "ns");
  case AUDIT_PTS_GAP:
    return silence(f, "PTS");
  case AUDIT_STAMP_LATE:
    return "data comes " + at_most(f, f.ms) + " after its decoding time";
  case AUDIT_STAMP_DELAY:
    return "data comes " + at_most(f, f.ms) + " before its decoding time";
  case AUDIT_STAMP_BASE:
    return "time stamps " + at_most(f, f.ms) + " away from the PCR";
  case AUDIT_STAMP_ORDER:
    return "PTS " + at_most(f, f.ms) + " before DTS";
  case AUDIT_STAMP_BACK:
    return f.step_ms < 0 ? "DTS goes back by " + at_most(f, f.step_ms) : "DTS stays the same";
  case AUDIT_STAMP_JUMP:
    return "distance of DTS to PCR jumps by " + at_most(f, f.step_ms);
  case AUDIT_PID_GAP:
    return silence(f, "packet");
  case AUDIT_SCRAMBLED:
    return "scrambled without a CA descriptor";
  case AUDIT_CAT_MISSING:
    return "scrambled packets, but no CAT";
  case AUDIT_RATE_LOSS:
    return rate_loss(f);
  case AUDIT_AFC_RESERVED:
    return "adaptation_field_control 00";
  case AUDIT_AF_SYNTAX:
    return "adaptation field does not fit";
  case AUDIT_PID_UNREFERENCED:
    return counted(f.packets, "packet") + " that no table announces";
  case AUDIT_LEADING:
    return counted(f.bytes, "byte") + " before the first packet";
  case AUDIT_PAT_CHANGE:
    return "PAT changed" + change_text(*f.change, true);
  case AUDIT_PMT_CHANGE:
    return "PMT changed" + change_text(*f.change, false);
  case AUDIT_PID_ABSENT:
    return "stream is announced, but has no packet";
  default:
    return audit_kind_name(f.kind);
  }
}

std::string human_line(const audit_finding &f, std::string_view tag,
                       const allowed_finding *allowed) {
  std::string line = std::string("AUDIT ") + audit_kind_name(f.kind) + " [" + std::string(tag) +
                     "] " + clock_time(f.time, 2, "--:--:--.---");
  if (f.pid >= 0)
    line += text(" PID %d (0x%04X)", f.pid, static_cast<unsigned>(f.pid));
  if (f.program_number >= 0)
    line += text(" program %d", f.program_number);
  line += ": " + what_happened(f) + where(f);
  return allowed ? line + ", " + allowed_text(*allowed) : line;
}

std::string terse_line(const audit_finding &f, std::string_view tag,
                       const allowed_finding *allowed) {
  std::string line = std::string("AUDIT ") + audit_kind_name(f.kind) + " " + std::string(tag) +
                     (f.pid >= 0 ? text(" %d", f.pid) : " -");
  line += text(" %" PRIu64 " %" PRIu64 " ", f.packet, f.offset) + clock_time(f.time, 1, "-");
  terse_fields fields(line);
  fields.word("severity", audit_severity_name(f.severity));
  fields.number("program_number", f.program_number);
  fields.count("last_packet", f.last_packet);
  fields.word("last_time", clock_time(f.last_time, 1, "-").c_str());
  fields.count("events", f.events);
  tell_fields(f, fields);
  if (allowed)
    fields.flag("allowed", true);
  return line;
}

// Why not all was read.
static std::string interruption(const audit_facts &facts) {
  if (facts.report.out_of_memory)
    return "out of memory";
  const std::string read = counted(facts.result.bytes, "byte");
  const std::string all = facts.size != 0 ? " of " + std::to_string(facts.size) : "";
  return (facts.result.end == run_end::signal ? "signal" : "read error") + (", " + read) + all +
         " read";
}

static std::string bare_verdict(const audit_facts &facts) {
  const std::string fails = counted(facts.report.fails, "finding");
  switch (facts.report.verdict) {
  case AUDIT_PASS:
    return text("PASS (%zu of %zu not measurable)", facts.not_measurable, facts.indicators);
  case AUDIT_FAILED:
    return "FAIL " + fails;
  case AUDIT_INCOMPLETE:
    return "INCOMPLETE " + fails + " (" + interruption(facts) + ")";
  default:
    return "NOTHING CHECKED";
  }
}

std::string verdict_line(const audit_facts &facts) {
  const uint64_t allowed = facts.allowed.all;
  return bare_verdict(facts) +
         (allowed != 0 ? ", " + counted(allowed, "finding") + " allowed" : "");
}
