#include "outputs/json_writer.h"

#include <algorithm>
#include <cstring>

#include <nlohmann/json.hpp>

#include "meta/app_info.h"
#include "tsa/config.h"

using json = nlohmann::ordered_json;

namespace {

enum { SCHEMA_VERSION = 1 };

constexpr double CLOCK_HZ = 90000;

constexpr const char *measure_names[] = {"pcr_interval", "stamp_to_pcr", "audio_to_ref"};

// Paths and tags are bytes: what is no UTF-8 reads as U+FFFD.
void put(output_file &out, const json &record) {
  out.write(record.dump(-1, ' ', false, json::error_handler_t::replace) + '\n');
}

json or_null(bool is_there, const json &value) {
  return is_there ? value : json(nullptr);
}

void add_counters(json &r, const tsan_alert &a) {
  if (a.kind == TSAN_CC_RST)
    r["elapsed_ms"] = a.elapsed_ms;
  r["dgram"] = a.dgram;
  r["last_cc"] = a.last_cc;
  r["current_cc"] = a.current_cc;
}

void add_stamps(json &r, const tsan_alert &a) {
  r["stamp_kind"] = a.is_pts ? "pts" : "dts";
  r["stamp"] = a.stamp;
  r["pcr"] = a.pcr;
  if (a.kind == TSAN_PCR_DELTA) {
    r["pcr_pid"] = a.pcr_pid;
  } else {
    r["ref_pid"] = a.ref_pid;
    r["ref_stamp"] = a.ref_stamp;
  }
  r["delta_ms"] = a.delta_ms;
}

// The fields that a kind has of its own.
void add_fields(json &r, const tsan_alert &a) {
  switch (a.kind) {
  case TSAN_CC_BRK:
  case TSAN_CC_RST:
    return add_counters(r, a);
  case TSAN_CC_MLR:
    return r.update({{"dgram", a.dgram}, {"count", a.count}});
  case TSAN_PCR_DELTA:
  case TSAN_AV_DELTA0:
  case TSAN_AV_DELTA_PLUS:
    return add_stamps(r, a);
  case TSAN_PCR_FREQ:
    return r.update(
        {{"pcr_pid", a.pcr_pid}, {"old_pcr", a.old_pcr}, {"pcr", a.pcr}, {"delta_ms", a.delta_ms}});
  case TSAN_PAT_DIFF:
    return r.update({{"added", a.added}, {"deleted", a.deleted}, {"programs", a.programs}});
  case TSAN_PMT_DIFF:
    return r.update(
        {{"old_tracks", a.old_tracks}, {"new_tracks", a.new_tracks}, {"pcr_pid", a.pcr_pid}});
  case TSAN_PID_NDAT:
    return r.update({{"track", a.track}});
  case TSAN_LOST_SYNC:
    return r.update({{"count", a.count}});
  default:
    return;
  }
}

bool has_pid(tsan_alert_kind kind) {
  return kind != TSAN_CC_MLR && kind != TSAN_PAT_DIFF && kind < TSAN_LOST_SYNC;
}

json measure(tsan_sample_kind kind, const measure_sum &sum) {
  const bool any = sum.count != 0;
  const double avg = any ? static_cast<double>(sum.total) / static_cast<double>(sum.count) : 0;
  return {{"limit_ms", or_null(measure_limit_ms(kind) != 0, measure_limit_ms(kind))},
          {"count", sum.count},
          {"total_ms", sum.total},
          {"min_ms", or_null(any, sum.min)},
          {"avg_ms", or_null(any, avg)},
          {"max_ms", or_null(any, sum.max)}};
}

json stream_of(tsan_t ctx, size_t program, size_t stream) {
  const auto st = stats_of(ctx, program, stream);
  return {{"pid", st.pid},   {"kind", std::string(1, st.kind)}, {"type", st.type},
          {"name", st.name}, {"processed", st.processed},       {"analyzed", st.analyzed}};
}

json program_of(tsan_t ctx, size_t program, const report_data &data) {
  const auto st = stats_of(ctx, program);
  json r = {{"program", program},
            {"pmt_pid", st.pmt_pid},
            {"pcr_pid", st.pcr_pid},
            {"packets",
             {{"processed", st.processed},
              {"analyzed", st.analyzed},
              {"video", st.video},
              {"audio", st.audio},
              {"other", st.other}}},
            {"alerts",
             {{"CC-BRK", st.cc_brk},
              {"CC-RST", st.cc_rst},
              {"PCR-DELTA", st.pcr_delta},
              {"AV-DELTA0", st.av_delta0},
              {"AV-DELTA+", st.av_delta_plus},
              {"PCR-FREQ", st.pcr_freq},
              {"PMT-DIFF", st.pmt_diff},
              {"PID-NDAT", st.pid_ndat}}}};
  for (size_t kind = 0; kind < TSAN_SAMPLE_KINDS; ++kind)
    r["measures"][measure_names[kind]] =
        measure(static_cast<tsan_sample_kind>(kind), data.sums[program][kind]);
  r["streams"] = json::array();
  for (size_t i = 0; i < st.streams; ++i)
    r["streams"].push_back(stream_of(ctx, program, i));
  return r;
}

} // namespace

void json_header(output_file &out) {
  put(out, {{"record", "header"},
            {"schema", SCHEMA_VERSION},
            {"generator", get_custom_app_info(g_app_name, g_app_descr, nullptr)},
            {"file", g_cfg.fpath},
            {"source", g_cfg.tsa.source},
            {"first_packet", std::max<off_t>(g_cfg.start_rec, 1)},
            {"max_packets", or_null(g_cfg.max_records != 0, g_cfg.max_records)}});
}

void json_alert(output_file &out, const tsan_alert &a) {
  const bool has_pcr = a.last_pcr != 0;
  json r = {{"record", "alert"},
            {"kind", tsan_alert_name(a.kind)},
            {"program", or_null(a.program >= 0, a.program)},
            {"pid", or_null(has_pid(a.kind), a.pid)},
            {"packet", a.pkt_idx},
            {"offset", or_null(a.pkt_idx != 0, packet_offset(a.pkt_idx))},
            {"time", or_null(has_pcr, static_cast<double>(a.last_pcr) / CLOCK_HZ)},
            {"tag", a.ptag}};
  add_fields(r, a);
  put(out, r);
}

void json_unreadable(output_file &out, const run_info &run) {
  put(out, {{"record", "alert"},
            {"kind", run.end == run_end::cannot_open ? "CANNOT-OPEN" : "READ-FAILED"},
            {"program", nullptr},
            {"pid", nullptr},
            {"packet", tsan_get_pidx(run.ctx)},
            {"offset", nullptr},
            {"time", nullptr},
            {"errno", run.file_errno},
            {"message", strerror(run.file_errno)}});
}

void json_report(output_file &out, const run_info &run, const report_data &data) {
  const auto st = stats_of(run.ctx);
  json r = {{"record", "report"},
            {"end", run_end_name(run.end)},
            {"status", run.status},
            {"bytes", run.bytes},
            {"records", run.records},
            {"packets",
             {{"processed", st.processed},
              {"analyzed", st.analyzed},
              {"start_skipped", st.start_skipped}}}};
  for (size_t kind = 0; kind < TSAN_ALERT_KINDS; ++kind)
    r["alerts"][tsan_alert_name(static_cast<tsan_alert_kind>(kind))] = data.alerts[kind];
  r["programs"] = json::array();
  for (size_t i = 0; i < st.programs; ++i)
    r["programs"].push_back(program_of(run.ctx, i, data));
  put(out, r);
}
