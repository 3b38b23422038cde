#include "outputs/report_html.h"

#include <algorithm>
#include <cinttypes>
#include <cstring>

#include "meta/app_info.h"
#include "outputs/report_alerts.h"
#include "outputs/report_plot.h"
#include "outputs/report_style.h"
#include "tsa/config.h"

namespace {

// What keeps the page below 1 MB.
enum : size_t {
  PLOT_BUCKETS = 12'288,
  MAX_DRAWN = 512,
  MAX_PLOTS = 96,
};

std::string end_text(const run_info &run) {
  const std::string reason = strerror(run.file_errno) + std::string(".");
  switch (run.end) {
  case run_end::complete:
    return "The file was read to its end.";
  case run_end::limit:
    return "The run ended at the number of packets asked for.";
  case run_end::signal:
    return "A signal ended the run before the end of the file.";
  case run_end::stopped:
    return "The run ended before the end of the file.";
  case run_end::cannot_open:
    return "The file cannot be opened: " + reason;
  case run_end::read_failed:
    return "Reading failed after " + grouped(run.bytes) + " bytes: " + reason;
  default:
    return "The run failed before the first packet.";
  }
}

void put_verdict(html_text &page, const run_info &run, const report_data &data) {
  const uint64_t total = data.total_alerts();
  const bool is_whole = run.end == run_end::complete || run.end == run_end::limit;
  const bool has_content = tsan_get_pidx(run.ctx) != 0;
  const char *colour = total != 0 || run.end >= run_end::stopped ? "bad"
                       : is_whole && has_content                 ? "good"
                                                                 : "warn";
  page.put("<section class=\"verdict %s\"><strong>", colour);
  if (total != 0)
    page.put("%s %s", grouped(total).c_str(), total == 1 ? "alert" : "alerts");
  else
    page.put("%s", run.end == run_end::cannot_open ? "Not read"
                   : has_content                   ? "No alerts"
                                                   : "Nothing read");
  page.put("</strong><p>");
  const char *separator = "";
  for (size_t kind = 0; kind < TSAN_ALERT_KINDS; ++kind) {
    if (data.alerts[kind] == 0)
      continue;
    page.put("%s%s\u00A0%s", separator, grouped(data.alerts[kind]).c_str(),
             tsan_alert_name(static_cast<tsan_alert_kind>(kind)));
    separator = ", ";
  }
  page.put("%s", total != 0 ? ". " : "");
  page.put_escaped(end_text(run));
  page.put("</p></section>");
}

void put_fact(html_text &page, const char *name, std::string_view value) {
  page.put("<div><dt>%s<dd>", name);
  page.put_escaped(value);
  page.put("</div>");
}

void put_facts(html_text &page, const run_info &run, const report_data &data) {
  const auto st = stats_of(run.ctx);
  page.put("<dl>");
  put_fact(page, "File", g_cfg.fpath);
  put_fact(page, "Read", size_text(run.bytes));
  put_fact(page, "Packets", grouped(st.processed));
  put_fact(page, "Of known streams", grouped(st.analyzed));
  if (g_cfg.start_rec > 1)
    put_fact(page, "From packet", grouped(static_cast<uint64_t>(g_cfg.start_rec)));
  put_fact(page, "Stream time", data.in_packets() ? "no PCR" : clock_text(data.duration(), true));
  put_fact(page, "Programs", std::to_string(st.programs));
  put_fact(page, "Exit status", std::to_string(run.status));
  page.put("</dl>");
}

void put_streams(html_text &page, tsan_t ctx, size_t program) {
  const auto pg = stats_of(ctx, program);
  page.put("<h3>Program %zu <small>PMT on PID %u, PCR on PID %u, %s packets</small></h3>"
           "<div class=scroll><table><tr><th class=n>PID<th>Kind<th>Type<th class=n>Packets",
           program, pg.pmt_pid, pg.pcr_pid, grouped(pg.processed).c_str());
  for (size_t i = 0; i < pg.streams; ++i) {
    const auto st = stats_of(ctx, program, i);
    const char *kind = st.kind == 'V' ? "video" : st.kind == 'A' ? "audio" : "private";
    page.put("<tr><td class=n>%u<td>%s<td>", st.pid, kind);
    page.put_escaped(st.name);
    page.put("<td class=\"n %s\">%s", st.processed == 0 ? "hit" : "",
             grouped(st.processed).c_str());
  }
  page.put("</table></div>");
}

void put_programs(html_text &page, tsan_t ctx) {
  const auto st = stats_of(ctx);
  if (st.programs == 0)
    return;
  page.put("<h2>Programs and streams</h2>");
  for (size_t i = 0; i < st.programs; ++i)
    put_streams(page, ctx, i);
}

void put_measure(html_text &page, const time_axis &axis, const series &s, size_t max_buckets) {
  constexpr const char *names[] = {"PCR interval", "Time stamp to PCR", "Audio to video"};
  page.put("<h3>%s <small>PID %u, program %d, ms</small></h3>", names[s.kind], s.pid, s.program);
  put_plot(page, axis, s, measure_limit_ms(s.kind), max_buckets);
}

void put_measures(html_text &page, const time_axis &axis, const report_data &data) {
  if (data.measured.empty())
    return;
  std::vector<const series *> order;
  for (const series &s : data.measured)
    order.push_back(&s);
  std::ranges::stable_sort(order, {},
                           [](auto *s) { return std::tuple(s->program, s->kind, s->pid); });
  const size_t plots = std::min<size_t>(order.size(), MAX_PLOTS);
  const size_t max_buckets = std::min<size_t>(MAX_DRAWN, PLOT_BUCKETS / plots);
  page.put(
      "<h2>Clocks and time stamps</h2><p class=note>Line: average; band: least to greatest, per "
      "stretch of time. On the right, how often each value came.</p>");
  for (size_t i = 0; i < plots; ++i)
    put_measure(page, axis, *order[i], max_buckets);
  if (plots < order.size())
    page.put("<p class=note>%zu more measures are not drawn.</p>", order.size() - plots);
}

void put_head(html_text &page) {
  page.put("<!doctype html>\n<html lang=en><head><meta charset=utf-8>"
           "<meta name=viewport content=\"width=device-width,initial-scale=1\"><title>korva: ");
  page.put_escaped(g_cfg.tsa.source);
  page.put("</title><style>");
  page.text += report_style;
  page.put("</style></head>\n<body><main><p class=kicker>korva · transport stream report</p><h1>");
  page.put_escaped(g_cfg.tsa.source);
  page.put("</h1>");
}

void put_foot(html_text &page, const time_axis &axis) {
  page.put("<footer>");
  if (axis.in_packets)
    page.put("No PCR was found on a stream that is followed: alerts are placed by packet. ");
  else
    page.put("Stream time is the sum of PCR steps, from the first PCR on; jumps back and jumps of "
             "more than a "
             "minute do not count. ");
  page.put("Packets count from 1, distances are in whole milliseconds. Made by ");
  page.put_escaped(get_custom_app_info(g_app_name, g_app_descr, nullptr));
  page.put("</footer></main></body></html>\n");
}

} // namespace

std::string report_page(const run_info &run, report_data &data) {
  data.finish(tsan_get_pidx(run.ctx));
  const time_axis axis = {data.in_packets(), data.bucket_width(), data.duration()};
  html_text page;
  put_head(page);
  put_verdict(page, run, data);
  put_facts(page, run, data);
  put_counts(page, data);
  put_timeline(page, axis, data);
  put_list(page, axis, data);
  put_programs(page, run.ctx);
  put_measures(page, axis, data);
  put_foot(page, axis);
  return std::move(page.text);
}
