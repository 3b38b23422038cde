#include "outputs/outputs.h"

#include <algorithm>
#include <cmath>
#include <new>

#include "outputs/checks.h"
#include "outputs/json_writer.h"
#include "outputs/junit_checks.h"
#include "outputs/report_html.h"

namespace {

enum : size_t { RESERVE = 256 << 10 }; // bytes

} // namespace

// Does what may need memory, until that is refused.
template <typename Work> void outputs::collect(Work work) {
  if (is_incomplete)
    return;
  try {
    work();
  } catch (const std::bad_alloc &) {
    is_incomplete = true;
    reserve.reset();
  }
}

int outputs::open(output_settings &settings, const run_request &asked, const tsan_config &checked) {
  wanted = &settings;
  request = &asked;
  checks = &checked;
  exit = settings.exit;
  allowed = &settings.allowed;
  if (!files.open(settings))
    return -1;
  if (files.json.is_open())
    json_header(files.json, asked);
  return 0;
}

void outputs::listen(tsan_t analyzer) {
  ctx = analyzer;
  if (!wanted->any())
    return;
  if (files.any() || allowed->needs_stream())
    collect([&] {
      reserve.reset(new char[RESERVE]);
      watch = std::make_unique<packet_watch>();
    });
  const tsan_readout readout = {.size = sizeof readout,
                                .opaque = this,
                                .on_alert = on_alert,
                                .on_sample = files.any() ? on_sample : nullptr,
                                .measure_all = files.any()};
  tsan_set_readout(ctx, &readout);
}

void outputs::list_streams() {
  watch->time.forget_streams();
  for (size_t i = 0; i < stats_of(ctx).programs; ++i)
    for (size_t j = 0; j < stats_of(ctx, i).streams; ++j)
      if (const auto stream = stats_of(ctx, i, j); stream.kind != 'S')
        watch->time.list_stream(stream.pid);
}

void outputs::packet(const uint8_t *bytes) {
  const ts_pkt pkt = ts_read(bytes);
  if (!ts_in_sync(pkt))
    return;
  if (watch->tables.packet(pkt)) [[unlikely]]
    list_streams();
  watch->time.packet(pkt, tsan_get_pidx(ctx));
}

void outputs::sync_lost(std::span<const uint8_t> rest) {
  if (files.any())
    grid_at_hand = find_grid(rest, packet_offset(*request, tsan_get_pidx(ctx) + 1), false);
}

const listed_pmt *outputs::pmt_of_program(int program) const {
  return watch && program >= 0 ? pmt_of(&watch->tables, ctx, static_cast<size_t>(program))
                               : nullptr;
}

double outputs::time_of(uint64_t packet) {
  return watch ? watch->time.of(packet) : NAN;
}

// What ends a run is no finding that could be allowed, nor what a caller reports.
const allowed_finding *outputs::take_baseline(const tsan_alert &alert, double time) {
  if (std::ranges::find(checked_kinds, alert.kind) == std::end(checked_kinds))
    return nullptr;
  const listed_pmt *pmt = pmt_of_program(alert.program);
  const found finding = {.kind = tsan_alert_name(alert.kind),
                         .pid = has_pid(alert.kind) ? static_cast<int32_t>(alert.pid) : -1,
                         .program_number = pmt ? pmt->program_number : -1,
                         .time = time,
                         .last_time = time};
  const allowed_finding *entry = allowed->cover(finding);
  if (files.baseline.is_open())
    collect([&] { found_now.add(finding, entry); });
  return entry;
}

void outputs::on_alert(void *self, const tsan_alert *alert) {
  auto &to = *static_cast<outputs *>(self);
  const double time = to.time_of(alert->pkt_idx);
  const allowed_finding *entry = to.take_baseline(*alert, time);
  if (!entry)
    to.exit.alert(*alert);
  to.line.count_alert();
  to.data.count(*alert, entry != nullptr);
  if (!to.files.any())
    return;
  if (to.files.json.is_open())
    json_alert(to.files.json, *to.request, *alert, time, to.pmt_of_program(alert->program), entry);
  to.collect([&] { to.data.place(*alert, time, entry); });
}

void outputs::on_sample(void *self, const tsan_sample *sample) {
  auto &to = *static_cast<outputs *>(self);
  to.data.count(*sample);
  to.collect([&] { to.data.place(*sample, to.time_of(sample->pkt_idx)); });
}

capture_rest outputs::rest_of_capture(run_end end) const {
  if (is_unreadable(end) || end == run_end::failed)
    return {};
  const bool is_sync_lost = data.alerts[TSAN_OUT_OF_SYNC] != 0;
  const uint64_t first_unread = tsan_get_pidx(ctx) + (is_sync_lost ? 0 : 1);
  capture_rest rest =
      look_behind(request->file, packet_offset(*request, first_unread), is_sync_lost);
  if (!rest.is_known)
    rest.grid = grid_at_hand;
  return rest;
}

int outputs::write_files(checked_run run) {
  int &status = run.result.status;
  status = files.complete_baseline(*wanted, found_now, run.request.source, is_incomplete, status);
  status = files.complete(files.junit, wanted->junit, status,
                          [&](output_file &file) { junit_of_checks(file, run); });
  return files.complete(
      *wanted, status,
      [&](output_file &page, int final_status) {
        status = final_status;
        report_page(page, run);
      },
      [&](output_file &json, int final_status) {
        status = final_status;
        json_end(json, run);
      });
}

int outputs::finish(tsan_t analyzer, run_result result) {
  ctx = analyzer;
  if (stats_of(ctx).analyzed == 0)
    exit.nothing_checked();
  result.status = exit.status(result.status, is_unreadable(result.end));
  if (allowed->is_on())
    allowed->tell_rest(stderr);
  if (!files.any() && !files.baseline.is_open())
    return result.status;
  const uint64_t packets = tsan_get_pidx(ctx);
  const double duration = watch ? watch->time.end(packets) : NAN;
  data.finish(packets, duration);
  return write_files({.request = *request,
                      .result = result,
                      .ctx = ctx,
                      .settings = *checks,
                      .data = data,
                      .allowed = *allowed,
                      .seen = watch ? &watch->tables : nullptr,
                      .rest = rest_of_capture(result.end),
                      .duration = duration,
                      .is_incomplete = is_incomplete});
}
