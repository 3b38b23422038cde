#include "outputs/audit_json.h"

#include <cmath>
#include <cstring>

#include "audit/clock.h"
#include "outputs/audit_fields.h"
#include "outputs/audit_records.h"
#include "outputs/json_text.h"

namespace {

constexpr int SCHEMA_VERSION = 2;

// With so many parts of one; null where there is none.
void put_rounded(json_text &r, const char *key, double value, double parts) {
  r.field_if(std::isfinite(value), key, nearest(value * parts) / parts + 0.0); // no -0
}

void put_measure(json_text &r, const char *key, double value) {
  put_rounded(r, key, value, 1e3);
}

void put_number(json_text &r, const char *key, int32_t value) {
  r.field_if(value >= 0, key, value);
}

template <size_t count>
void put_measures(json_text &r, const char *key, const double (&values)[count]) {
  if (!std::isfinite(values[0]))
    return r.null(key);
  r.begin_array(key);
  for (const double value : values)
    put_measure(r, nullptr, value);
  r.end_array();
}

void put_list(json_text &r, const char *key, const uint16_t *items, size_t count) {
  r.begin_array(key);
  for (size_t i = 0; i < count; ++i)
    r.item(items[i]);
  r.end_array();
}

class json_fields : public field_sink {
public:
  explicit json_fields(json_text &target) : r(target) {}

  void count(const char *key, uint64_t value) override { r.field(key, value); }
  void number(const char *key, int32_t value) override { put_number(r, key, value); }
  void measure(const char *key, double value) override { put_measure(r, key, value); }
  void flag(const char *key, bool value) override { r.field(key, value); }
  void word(const char *key, const char *value) override {
    r.field_if(value != nullptr, key, value);
  }
  void list(const char *key, const audit_list &list) override {
    put_list(r, key, list.items, list.count);
  }

private:
  json_text &r;
};

void put_first(json_text &r, const audit_indicator &indicator) {
  if (indicator.first_packet == 0)
    return r.null("first");
  r.begin_object("first");
  r.field("packet", indicator.first_packet);
  r.seconds("time", indicator.first_time);
  put_number(r, "pid", indicator.first_pid);
  r.end_object();
}

void put_indicator(output_file &out, const audit_indicator &indicator, uint64_t allowed) {
  json_text r(out);
  r.field("record", "indicator");
  r.field("id", indicator.id);
  r.field("name", indicator.name);
  r.field("state", audit_state_name(indicator.state));
  r.field("count", indicator.findings);
  if (allowed != 0)
    r.field("allowed", allowed);
  put_first(r, indicator);
  put_measure(r, "worst", indicator.worst);
  put_measure(r, "limit", indicator.limit);
  r.field_if(indicator.reason[0] != '\0', "reason", indicator.reason);
}

void put_pid(output_file &out, const audit_pid &pid) {
  json_text r(out);
  r.field("record", "pid");
  r.field("pid", pid.pid);
  r.field("what", pid.what);
  put_list(r, "program_numbers", pid.program_numbers, pid.programs);
  r.field("packets", pid.packets);
  put_rounded(r, "share", pid.share, 1e9);
  put_measure(r, "bitrate", pid.bitrate);
  r.field("scrambled", pid.scrambled);
  r.field("tei", pid.tei);
  r.field("duplicates", pid.duplicates);
  r.field("lost", pid.lost);
  r.field("pcrs", pid.pcrs);
  put_measure(r, "pcr_max_ms", pid.pcr_max_ms);
  r.field("over_40ms", pid.over_40ms);
  put_measures(r, "pts_delay_ms", pid.pts_delay_ms);
  put_measures(r, "dts_delay_ms", pid.dts_delay_ms);
  put_measures(r, "accuracy_ns", pid.accuracy_ns);
  put_measure(r, "longest_gap_ms", pid.longest_gap_ms);
}

void put_stream(json_text &r, const audit_stream &stream) {
  r.begin_object();
  r.field("pid", stream.pid);
  r.field("stream_type", stream.stream_type);
  r.field("kind", std::string_view(&stream.kind, 1));
  r.field("protected", stream.is_protected);
  r.end_object();
}

void put_program(output_file &out, audit_t audit, size_t index, const audit_program &program) {
  json_text r(out);
  r.field("record", "program");
  r.field("program_number", program.program_number);
  r.field("pmt_pid", program.pmt_pid);
  put_number(r, "pcr_pid", program.pcr_pid);
  r.begin_array("streams");
  audit_stream stream = {};
  stream.size = sizeof stream;
  for (size_t i = 0; audit_get_stream(audit, index, i, &stream) == 0; ++i)
    put_stream(r, stream);
  r.end_array();
}

void put_limits(json_text &r, const audit_config &settings) {
  r.begin_object("limits");
  for (int i = 0; i < AUDIT_LIMITS; ++i)
    put_measure(r, audit_limit_name(static_cast<audit_limit>(i)), settings.limits[i]);
  r.end_object();
}

void put_findings(json_text &r, const audit_report &report) {
  r.begin_object("findings");
  for (int i = 0; i < AUDIT_KINDS; ++i)
    if (report.findings[i] != 0)
      r.field(audit_kind_name(static_cast<audit_kind>(i)), report.findings[i]);
  r.end_object();
}

} // namespace

void json_audit_header(output_file &out, const run_request &request, const audit_facts &facts) {
  json_text r(out);
  r.field("record", "header");
  r.field("schema", SCHEMA_VERSION);
  r.field("mode", "audit");
  r.field("generator", request.generator);
  r.field("file", request.file);
  r.field("source", request.source);
  r.field("profile", audit_profile_name(facts.settings.profile));
  r.field_if(facts.packet_size != 0, "packet_size", facts.packet_size);
  r.field("first_packet", request.first_packet);
  r.field_if(request.max_packets != 0, "max_packets", request.max_packets);
  put_limits(r, facts.settings);
}

void json_audit_finding(output_file &out, const audit_finding &f, const allowed_finding *allowed) {
  json_text r(out);
  r.field("record", "finding");
  r.field("kind", audit_kind_name(f.kind));
  r.field("severity", audit_severity_name(f.severity));
  put_number(r, "pid", f.pid);
  put_number(r, "program_number", f.program_number);
  r.field("packet", f.packet);
  r.field("offset", f.offset);
  r.seconds("time", f.time);
  r.field("last_packet", f.last_packet);
  r.seconds("last_time", f.last_time);
  r.field("events", f.events);
  json_fields fields(r);
  tell_fields(f, fields);
  put_allowed(r, allowed);
}

void json_audit_records(output_file &out, audit_t audit, const audit_facts &facts) {
  for_each_record(audit, audit_get_indicator, [&](size_t, const audit_indicator &indicator) {
    put_indicator(out, indicator, facts.allowed.of(indicator));
  });
  for_each_record(audit, audit_get_pid, [&](size_t, const audit_pid &pid) { put_pid(out, pid); });
  for_each_record(audit, audit_get_program, [&](size_t index, const audit_program &program) {
    put_program(out, audit, index, program);
  });
}

void json_audit_report(output_file &out, const audit_facts &facts, const baseline &allowed) {
  const audit_report &report = facts.report;
  const run_result &result = facts.result;
  json_text r(out);
  r.field("record", "report");
  r.field("mode", "audit");
  r.field("verdict", audit_verdict_name(report.verdict));
  r.field("fails", report.fails);
  r.field("end", run_end_name(result.end));
  r.field("status", result.status);
  r.field("bytes", result.bytes);
  r.field("packets", report.packets);
  r.field("leading_bytes", facts.leading);
  r.field("lost_bytes", report.lost_bytes);
  r.field("tail_bytes", facts.tail);
  r.seconds("duration", report.duration);
  put_measure(r, "bitrate", report.bitrate);
  r.field_if(report.cbr >= 0, "cbr", report.cbr == 1);
  put_findings(r, report);
  if (allowed.is_on())
    allowed.put_rest(r);
}
