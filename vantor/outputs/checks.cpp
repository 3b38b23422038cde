#include "outputs/checks.h"

#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "mpegts/constants.h"

namespace {

[[gnu::format(printf, 1, 2)]] reason_text reason(const char *format, ...) {
  reason_text out;
  va_list args;
  va_start(args, format);
  vsnprintf(out.text, sizeof out.text, format, args);
  va_end(args);
  return out;
}

// What the PAT lists as program 0.
bool is_network(const listed_pmt *pmt) {
  return pmt && pmt->program_number == 0;
}

// Stream types that the analyzer does not follow, as far as there is room for them.
reason_text only_other_types(const listed_pmt &pmt) {
  reason_text out = reason("only streams of types that are not followed:");
  size_t used = strlen(out.text);
  for (unsigned type = 0; type < pmt.types.size() && used + 8 < sizeof out.text; ++type)
    if (pmt.types[type])
      used +=
          static_cast<size_t>(snprintf(out.text + used, sizeof out.text - used, " 0x%02X", type));
  return out;
}

// Why a program that the PAT lists has no stream that is followed.
reason_text why_no_stream(const listed_pmt *pmt) {
  if (is_network(pmt))
    return reason("network information, no program");
  if (!pmt || pmt->packets == 0)
    return reason("PAT, but no PMT");
  if (pmt->scrambled == pmt->packets)
    return reason("scrambled PMT");
  if (pmt->tables == 0)
    return reason("PAT, but no PMT on PID %u that it lists", pmt->pid);
  if (pmt->pointed == pmt->tables)
    return reason("PMT behind a pointer_field that is not 0, which korva does not read");
  if (pmt->types.any())
    return only_other_types(*pmt);
  return reason("PMT without streams");
}

bool is_pat_scrambled(const survey *seen) {
  return seen && seen->pat_packets != 0 && seen->pat_scrambled == seen->pat_packets;
}

reason_text why_no_program(const survey *seen) {
  if (!seen)
    return reason("no packet of a listed stream");
  if (seen->pat_packets == 0)
    return reason("no PAT");
  return reason("no complete PAT");
}

reason_text why_no_packet(const run_result &result) {
  if (is_unreadable(result.end))
    return reason("the file could not be read");
  if (result.end == run_end::failed)
    return reason("the run failed before the first packet");
  return reason("no packet of 188 bytes to read");
}

reason_text why_no_sync(const sync_grid &grid) {
  if (grid.packet_size == 0)
    return reason("no packets of 188 bytes");
  if (grid.packet_size == TS_PKT_SIZE)
    return reason("sync lost before the first stream; packets go on at byte %" PRIu64, grid.offset);
  return reason("packets of %zu bytes?", grid.packet_size);
}

uint64_t streams_of(tsan_t ctx) {
  uint64_t streams = 0;
  for (size_t i = 0; i < stats_of(ctx).programs; ++i)
    streams += stats_of(ctx, i).streams;
  return streams;
}

uint64_t samples_of(const checked_run &run, tsan_sample_kind kind) {
  uint64_t samples = 0;
  for (const auto &program : run.data.checked)
    samples += program[kind].count;
  return samples;
}

// Of the programs that have a PMT PID, the first whose reason says most.
reason_text why_no_program_has_packets(const checked_run &run) {
  const size_t programs = stats_of(run.ctx).programs;
  reason_text first;
  for (size_t i = 0; i < programs; ++i) {
    const reason_text why = why_unchecked(run, i);
    const listed_pmt *pmt = pmt_of(run.seen, run.ctx, i);
    if (is_network(pmt))
      continue;
    if (pmt && pmt->packets != 0)
      return why;
    if (first.is_empty())
      first = why;
  }
  return first.is_empty() ? reason("PAT, but no program") : first;
}

check_report not_looked_at(check_report report, const reason_text &why) {
  report.state = check_state::not_checked;
  report.reason = why;
  return report;
}

// A check of packets, tables or streams; `why`: the reason when there was none.
check_report report_count(check_report report, uint64_t looked_at, const reason_text &why) {
  report.looked_at = looked_at;
  return looked_at != 0 || why.is_empty() ? report : not_looked_at(report, why);
}

uint64_t tables_of(const checked_run &run) {
  uint64_t tables = 0;
  for (size_t i = 0; i < stats_of(run.ctx).programs; ++i)
    if (const listed_pmt *pmt = pmt_of(run.seen, run.ctx, i))
      tables += pmt->tables;
  return tables;
}

reason_text why_no_samples(const checked_run &run, tsan_sample_kind kind) {
  const reason_text why = why_unchecked(run);
  if (!why.is_empty())
    return why;
  if (kind == TSAN_PCR_INTERVAL)
    return reason("no second PCR on a stream that is followed");
  if (kind == TSAN_STAMP_TO_PCR)
    return reason("no audio time stamp behind a PCR on a stream that is followed");
  return reason("no time stamps of audio and video in one program");
}

check_report report_samples(const checked_run &run, check_report report, tsan_sample_kind kind) {
  report.limit_ms = limit_ms(run.settings, kind);
  report.unit = kind == TSAN_PCR_INTERVAL ? "intervals" : "time stamps";
  if (report.limit_ms == 0 || (kind != TSAN_PCR_INTERVAL && !run.settings.is_enabled)) {
    report.state = check_state::off;
    return report;
  }
  return report_count(report, samples_of(run, kind), why_no_samples(run, kind));
}

// Why there was no PAT.
reason_text why_no_table(const checked_run &run) {
  const reason_text why = why_unchecked(run);
  return why.is_empty() ? why_no_program(run.seen) : why;
}

check_report report_counters(const checked_run &run, check_report report) {
  if (!run.settings.is_enabled || !run.settings.cc_track) {
    report.state = check_state::off;
    return report;
  }
  return report_count(report, stats_of(run.ctx).analyzed, why_unchecked(run));
}

} // namespace

reason_text why_unchecked(const checked_run &run, size_t program) {
  const auto st = stats_of(run.ctx, program);
  if (st.processed != 0)
    return {};
  if (st.streams == 0)
    return why_no_stream(pmt_of(run.seen, run.ctx, program));
  return reason("no packet of a stream that the PMT lists");
}

reason_text why_unchecked(const checked_run &run) {
  const auto st = stats_of(run.ctx);
  if (st.analyzed != 0)
    return {};
  if (st.processed == 0)
    return why_no_packet(run.result);
  if (run.rest.is_sync_lost)
    return why_no_sync(run.rest.grid);
  if (is_pat_scrambled(run.seen)) // what the analyzer takes for its programs are none
    return reason("scrambled PAT");
  return st.programs == 0 ? why_no_program(run.seen) : why_no_program_has_packets(run);
}

size_t unchecked_programs(const checked_run &run) {
  size_t unchecked = 0;
  for (size_t i = 0; i < stats_of(run.ctx).programs; ++i) {
    if (!is_network(pmt_of(run.seen, run.ctx, i)) && !why_unchecked(run, i).is_empty())
      ++unchecked;
  }
  return unchecked;
}

const char *check_state_name(check_state state) {
  constexpr const char *names[] = {"on", "off", "not-checked"};
  return names[static_cast<size_t>(state)];
}

check_report report_check(const checked_run &run, tsan_alert_kind kind) {
  check_report report = {.kind = kind,
                         .state = check_state::on,
                         .looked_at = 0,
                         .unit = "packets",
                         .limit_ms = 0,
                         .reason = {}};
  switch (kind) {
  case TSAN_PCR_DELTA:
    return report_samples(run, report, TSAN_STAMP_TO_PCR);
  case TSAN_AV_DELTA0:
  case TSAN_AV_DELTA_PLUS:
    return report_samples(run, report, TSAN_AUDIO_TO_REF);
  case TSAN_PCR_FREQ:
    return report_samples(run, report, TSAN_PCR_INTERVAL);
  case TSAN_PAT_DIFF:
    report.unit = "PATs";
    return report_count(report, run.seen ? run.seen->pats : 0, why_no_table(run));
  case TSAN_PMT_DIFF:
    report.unit = "PMTs";
    return report_count(report, tables_of(run), why_unchecked(run));
  case TSAN_PID_NDAT:
    report.unit = "streams";
    return report_count(report, streams_of(run.ctx), why_unchecked(run));
  default:
    return report_counters(run, report);
  }
}
