#include "outputs/json_writer.h"

#include <cstring>

#include "outputs/checks.h"
#include "outputs/json_text.h"

namespace {

constexpr int SCHEMA_VERSION = 1;
constexpr double CLOCK_HZ = 90000;

constexpr const char *sample_names[] = {"pcr_interval", "stamp_to_pcr", "audio_to_ref"};
constexpr const char *measure_names[] = {"pcr_interval", "pts_to_pcr", "dts_to_pcr", "pts_skew",
                                         "dts_skew"};

void put_counters(json_text &r, const tsan_alert &a) {
  if (a.kind == TSAN_CC_RST)
    r.field("elapsed_ms", a.elapsed_ms);
  r.field("dgram", a.dgram);
  r.field("last_cc", a.last_cc);
  r.field("current_cc", a.current_cc);
}

void put_stamps(json_text &r, const tsan_alert &a) {
  r.field("stamp_kind", a.is_pts ? "pts" : "dts");
  r.field("stamp", a.stamp);
  r.field("pcr", a.pcr);
  if (a.kind == TSAN_PCR_DELTA) {
    r.field("pcr_pid", a.pcr_pid);
  } else {
    r.field("ref_pid", a.ref_pid);
    r.field("ref_stamp", a.ref_stamp);
  }
  r.field("delta_ms", a.delta_ms);
}

// The fields that a kind has of its own.
void put_fields(json_text &r, const tsan_alert &a) {
  switch (a.kind) {
  case TSAN_CC_BRK:
  case TSAN_CC_RST:
    put_counters(r, a);
    break;
  case TSAN_CC_MLR:
    r.field("dgram", a.dgram);
    r.field("count", a.count);
    break;
  case TSAN_PCR_DELTA:
  case TSAN_AV_DELTA0:
  case TSAN_AV_DELTA_PLUS:
    put_stamps(r, a);
    break;
  case TSAN_PCR_FREQ:
    r.field("pcr_pid", a.pcr_pid);
    r.field("old_pcr", a.old_pcr);
    r.field("pcr", a.pcr);
    r.field("delta_ms", a.delta_ms);
    break;
  case TSAN_PAT_DIFF:
    r.field("added", a.added);
    r.field("deleted", a.deleted);
    r.field("programs", a.programs);
    break;
  case TSAN_PMT_DIFF:
    r.field("old_tracks", a.old_tracks);
    r.field("new_tracks", a.new_tracks);
    r.field("pcr_pid", a.pcr_pid);
    break;
  case TSAN_PID_NDAT:
    r.field("track", a.track);
    break;
  case TSAN_LOST_SYNC:
    r.field("count", a.count);
    break;
  default:
    break;
  }
}

void put_number(json_text &r, const listed_pmt *pmt) {
  r.field_if(pmt != nullptr, "program_number", pmt ? pmt->program_number : 0);
}

void put_measure(json_text &r, const char *name, const measure_sum &sum, size_t limit) {
  const bool any = sum.count != 0;
  r.begin_object(name);
  r.field_if(limit != 0, "limit_ms", limit);
  r.field("count", sum.count);
  r.field("total_ms", sum.total);
  r.field_if(any, "min_ms", sum.min);
  r.field_if(any, "avg_ms", any ? sum.average() : 0);
  r.field_if(any, "max_ms", sum.max);
  r.end_object();
}

// As the checks have them, without a sign, and as the page does.
void put_measures(json_text &r, const checked_run &run, size_t program) {
  r.begin_object("measures");
  for (size_t i = 0; i < TSAN_SAMPLE_KINDS; ++i)
    put_measure(r, sample_names[i], run.data.checked[program][i],
                limit_ms(run.settings, static_cast<tsan_sample_kind>(i)));
  for (size_t i = PTS_TO_PCR; i < MEASURES; ++i)
    put_measure(r, measure_names[i], run.data.sums[program][i],
                limit_ms(run.settings, sample_kind_of(static_cast<measure>(i))));
  r.end_object();
}

void put_stream(json_text &r, const tsan_stream_stats &st) {
  r.begin_object();
  r.field("pid", st.pid);
  r.field("kind", std::string_view(&st.kind, 1));
  r.field("type", st.type);
  r.field("name", st.name);
  r.field("processed", st.processed);
  r.field("analyzed", st.analyzed);
  r.end_object();
}

void put_program_alerts(json_text &r, const tsan_program_stats &st) {
  r.begin_object("alerts");
  r.field("CC-BRK", st.cc_brk);
  r.field("CC-RST", st.cc_rst);
  r.field("PCR-DELTA", st.pcr_delta);
  r.field("AV-DELTA0", st.av_delta0);
  r.field("AV-DELTA+", st.av_delta_plus);
  r.field("PCR-FREQ", st.pcr_freq);
  r.field("PMT-DIFF", st.pmt_diff);
  r.field("PID-NDAT", st.pid_ndat);
  r.end_object();
}

void put_reason(json_text &r, const char *key, const reason_text &why) {
  r.field_if(!why.is_empty(), key, why.text);
}

void put_program(json_text &r, const checked_run &run, size_t program) {
  const auto st = stats_of(run.ctx, program);
  r.begin_object();
  r.field("program", program);
  put_number(r, pmt_of(run.seen, run.ctx, program));
  r.field("pmt_pid", st.pmt_pid);
  r.field("pcr_pid", st.pcr_pid);
  put_reason(r, "not_checked", why_unchecked(run, program));
  r.begin_object("packets");
  r.field("processed", st.processed);
  r.field("analyzed", st.analyzed);
  r.field("video", st.video);
  r.field("audio", st.audio);
  r.field("other", st.other);
  r.end_object();
  put_program_alerts(r, st);
  put_measures(r, run, program);
  r.begin_array("streams");
  for (size_t i = 0; i < st.streams; ++i)
    put_stream(r, stats_of(run.ctx, program, i));
  r.end_array();
  r.end_object();
}

void put_checks(json_text &r, const checked_run &run) {
  r.begin_array("checks");
  for (const tsan_alert_kind kind : checked_kinds) {
    const check_report check = report_check(run, kind);
    r.begin_object();
    r.field("check", tsan_alert_name(kind));
    r.field("state", check_state_name(check.state));
    r.field("looked_at", check.looked_at);
    r.field("unit", check.unit);
    r.field_if(check.limit_ms != 0, "limit_ms", check.limit_ms);
    put_reason(r, "reason", check.reason);
    r.end_object();
  }
  r.end_array();
}

void put_packets(json_text &r, const tsan_stats &st) {
  r.begin_object("packets");
  r.field("processed", st.processed);
  r.field("analyzed", st.analyzed);
  r.field("start_skipped", st.start_skipped);
  r.end_object();
}

void put_rest(json_text &r, const capture_rest &rest) {
  r.field_if(rest.is_known, "unread_bytes", rest.bytes);
  if (rest.grid.packet_size == 0)
    return r.null("looks_like");
  r.begin_object("looks_like");
  r.field("packet_size", rest.grid.packet_size);
  r.field("offset", rest.grid.offset);
  r.end_object();
}

void put_unreadable(output_file &out, const checked_run &run) {
  json_text r(out);
  r.field("record", "alert");
  r.field("kind", run.result.end == run_end::cannot_open ? "CANNOT-OPEN" : "READ-FAILED");
  r.null("program");
  r.null("pid");
  r.field("packet", tsan_get_pidx(run.ctx));
  r.null("offset");
  r.null("time");
  r.seconds("stream_time", run.duration);
  r.field("errno", run.result.file_errno);
  r.field("message", strerror(run.result.file_errno));
}

} // namespace

void json_header(output_file &out, const run_request &request) {
  json_text r(out);
  r.field("record", "header");
  r.field("schema", SCHEMA_VERSION);
  r.field("generator", request.generator);
  r.field("file", request.file);
  r.field("source", request.source);
  r.field("first_packet", request.first_packet);
  r.field_if(request.max_packets != 0, "max_packets", request.max_packets);
}

void json_alert(output_file &out, const run_request &request, const tsan_alert &a, double time,
                const listed_pmt *pmt, const allowed_finding *allowed) {
  json_text r(out);
  r.field("record", "alert");
  r.field("kind", tsan_alert_name(a.kind));
  r.field_if(a.program >= 0, "program", a.program);
  put_number(r, pmt);
  r.field_if(has_pid(a.kind), "pid", a.pid);
  r.field("packet", a.pkt_idx);
  r.field_if(a.pkt_idx != 0, "offset", packet_offset(request, a.pkt_idx));
  r.field_if(a.last_pcr != 0, "time", static_cast<double>(a.last_pcr) / CLOCK_HZ);
  r.seconds("stream_time", time);
  r.field("tag", a.ptag);
  put_fields(r, a);
  put_allowed(r, allowed);
}

void json_end(output_file &out, const checked_run &run) {
  if (is_unreadable(run.result.end))
    put_unreadable(out, run);
  json_text r(out);
  r.field("record", "report");
  r.field("end", run_end_name(run.result.end));
  r.field("status", run.result.status);
  r.field("bytes", run.result.bytes);
  r.field("records", run.result.records);
  put_packets(r, stats_of(run.ctx));
  r.seconds("duration", run.duration);
  put_rest(r, run.rest);
  put_reason(r, "not_checked", why_unchecked(run));
  r.field("incomplete", run.is_incomplete);
  put_checks(r, run);
  r.begin_object("alerts");
  for (size_t kind = 0; kind < TSAN_ALERT_KINDS; ++kind)
    r.field(tsan_alert_name(static_cast<tsan_alert_kind>(kind)), run.data.alerts[kind]);
  r.end_object();
  if (run.allowed.is_on())
    run.allowed.put_rest(r);
  r.begin_array("programs");
  for (size_t i = 0; i < stats_of(run.ctx).programs; ++i)
    put_program(r, run, i);
  r.end_array();
}
