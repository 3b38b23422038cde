#include "outputs/report_html.h"

#include <algorithm>
#include <cinttypes>
#include <cmath>
#include <new>
#include <tuple>

#include "outputs/checks.h"
#include "outputs/report_alerts.h"
#include "outputs/report_frame.h"
#include "outputs/report_plot.h"

namespace {

// What keeps the page below 1 MB.
enum : size_t {
  PLOT_BUCKETS = 8'192,
  MAX_DRAWN = 512,
};

constexpr const char *titles[MEASURES] = {"PCR interval", "PTS to PCR", "DTS to PCR",
                                          "Mux skew by PTS", "Mux skew by DTS"};

// What was left, and what it looks like.
void put_rest(html_text &page, const capture_rest &rest) {
  if (rest.is_known)
    page.format(" %s were left unread.", size_text(rest.bytes).text);
  const sync_grid &grid = rest.grid;
  if (grid.packet_size == TS_PKT_SIZE)
    page.format(" Packets of 188 bytes go on at byte %s.", grouped(grid.offset).text);
  else if (grid.packet_size != 0)
    page.format(" What follows looks like packets of %zu bytes, with a sync byte at byte %s.",
                grid.packet_size, grouped(grid.offset).text);
  else if (rest.is_known && rest.is_sync_lost)
    page.put(" What follows does not look like packets of 188, 192, 204 or 208 bytes.");
}

void put_unchecked_programs(html_text &page, const checked_run &run) {
  const size_t unchecked = unchecked_programs(run), programs = stats_of(run.ctx).programs;
  if (unchecked != 0)
    page.format("Of %zu of %zu programs no packet was checked. ", unchecked, programs);
}

const char *verdict_colour(const checked_run &run, bool is_unchecked) {
  const run_end end = run.result.end;
  if (run.data.total_alerts() != run.data.total_allowed() || end >= run_end::stopped)
    return "bad";
  const bool is_whole = end == run_end::complete || end == run_end::limit;
  return is_whole && !is_unchecked && !run.is_incomplete ? "good" : "warn";
}

void put_verdict(html_text &page, const checked_run &run) {
  const uint64_t allowed = run.data.total_allowed(), total = run.data.total_alerts() - allowed;
  const reason_text why = why_unchecked(run);
  page.format("<section class=\"verdict %s\"><strong>", verdict_colour(run, !why.is_empty()));
  if (!why.is_empty())
    page.put("Nothing checked");
  else if (total != 0)
    page.format("%s %s", grouped(total).text, total == 1 ? "alert" : "alerts");
  else
    page.put("No alerts");
  page.put("</strong><p>");
  if (!why.is_empty()) {
    page.put("No packet of a stream was analyzed: ");
    page.put_escaped(why.text);
    page.put(why.is_question() ? " " : ". ");
  }
  put_counts(page, run.data.alerts, tsan_alert_name);
  if (allowed != 0)
    page.format("The baseline allows %s of these. ", grouped(allowed).text);
  if (why.is_empty())
    put_unchecked_programs(page, run);
  put_end(page, run.result);
  if (run.result.end == run_end::stopped)
    put_rest(page, run.rest);
  if (run.is_incomplete)
    page.put(" <b>This page is incomplete</b>: memory was refused during the run.");
  page.put("</p></section>");
}

void put_facts(html_text &page, const checked_run &run) {
  const auto st = stats_of(run.ctx);
  page.put("<dl>");
  put_fact(page, "File", run.request.file);
  put_options(page, run.request.options);
  put_date(page);
  put_fact(page, "Read", size_text(run.result.bytes).text);
  put_fact(page, "Packets", grouped(st.processed).text);
  put_fact(page, "Of known streams", grouped(st.analyzed).text);
  if (run.request.first_packet > 1)
    put_fact(page, "From packet", grouped(run.request.first_packet).text);
  put_fact(page, "Stream time",
           std::isnan(run.duration) ? "no clock" : clock_text(whole_ms(run.duration), true).text);
  put_fact(page, "Programs", grouped(st.programs).text);
  put_fact(page, "Exit status", grouped(static_cast<uint64_t>(run.result.status)).text);
  page.put("</dl>");
}

void put_program_title(html_text &page, const checked_run &run, size_t program) {
  const auto pg = stats_of(run.ctx, program);
  page.format("<h3>Program %zu <small>", program);
  if (const listed_pmt *pmt = pmt_of(run.seen, run.ctx, program))
    page.format(pmt->program_number != 0 ? "program_number %u, " : "network information (%u), ",
                pmt->program_number);
  page.format("PMT on PID %u, ", pg.pmt_pid != 0 ? pg.pmt_pid : pg.listed_pid);
  if (pg.streams != 0)
    page.format("PCR on PID %u, ", pg.pcr_pid);
  page.format("%s packets</small></h3>", grouped(pg.processed).text);
}

void put_streams(html_text &page, const checked_run &run, size_t program) {
  const auto pg = stats_of(run.ctx, program);
  page.format("<div class=scroll tabindex=0 role=region aria-label=\"Streams of program %zu\">"
              "<table><tr><th scope=col class=n>PID<th scope=col>Kind<th scope=col>Type"
              "<th scope=col class=n>Packets",
              program);
  for (size_t i = 0; i < pg.streams; ++i) {
    const auto st = stats_of(run.ctx, program, i);
    const char *kind = st.kind == 'V' ? "video" : st.kind == 'A' ? "audio" : "private";
    page.format("<tr><td class=n>%u<td>%s<td>", st.pid, kind);
    page.put_escaped(st.name);
    page.format("<td class=\"n %s\">%s", st.processed == 0 ? "hit" : "",
                grouped(st.processed).text);
  }
  page.put("</table></div>");
}

void put_programs(html_text &page, const checked_run &run) {
  const size_t programs = stats_of(run.ctx).programs;
  if (programs == 0)
    return;
  page.put("<h2>Programs and streams</h2>");
  for (size_t i = 0; i < programs; ++i) {
    put_program_title(page, run, i);
    if (const reason_text why = why_unchecked(run, i); !why.is_empty()) {
      page.put("<p>Not checked: ");
      page.put_escaped(why.text);
      page.put(".</p>");
    }
    if (stats_of(run.ctx, i).streams != 0)
      put_streams(page, run, i);
  }
}

void put_measure(html_text &page, const time_axis &axis, const tsan_config &settings,
                 const measured_series &s, size_t max_buckets) {
  page.format("<h3>%s <small>PID %u, program %d, ms</small></h3>", titles[s.what], s.pid,
              s.program);
  put_plot(page, axis, {titles[s.what], s.pid, s.what}, s,
           limit_ms(settings, sample_kind_of(s.what)), max_buckets);
}

void put_measures(html_text &page, const time_axis &axis, const checked_run &run) {
  std::vector<const measured_series *> order;
  order.reserve(run.data.measured.size());
  for (const measured_series &s : run.data.measured)
    if (s.sum.count != 0)
      order.push_back(&s);
  if (order.empty())
    return;
  std::ranges::sort(order, {}, [](auto *s) { return std::tuple(s->program, s->what, s->pid); });
  page.put("<h2>Clocks and time stamps</h2><p class=note>Line: average; band: least to greatest, "
           "per stretch of time. On the right, how often each value came. PTS and DTS to PCR: how "
           "long before its time an audio access unit begins to arrive. Mux skew: an audio time "
           "stamp less the last one of video that arrived before it; it tells how they are "
           "multiplexed, not whether lips and sound agree.</p>");
  for (const measured_series *s : order)
    put_measure(page, axis, run.settings, *s,
                std::min<size_t>(MAX_DRAWN, PLOT_BUCKETS / order.size()));
  if (run.data.unplaced_samples != 0)
    page.format("<p class=note>%s values of more PIDs are counted, but not drawn.</p>",
                grouped(run.data.unplaced_samples).text);
}

void put_foot(html_text &page, const checked_run &run) {
  page.put("<footer>");
  if (run.data.in_packets())
    page.put("No clock: no PID had two PCRs that follow each other. Alerts are placed by packet. ");
  else
    page.put("Stream time is told by the PCRs of one PID at a time, from its first one on, and "
             "estimated between them; jumps of a clock are no time. ");
  page.put("Packets count from 1, distances are in whole milliseconds. Made by ");
  page.put_escaped(run.request.generator);
  page.put("</footer></main></body></html>\n");
}

void put_body(html_text &page, const checked_run &run) {
  const report_data &data = run.data;
  const time_axis axis = {data.in_packets(), data.bucket_width(),
                          std::max<uint64_t>(data.duration(), 1)};
  put_checks(page, run);
  put_timeline(page, axis, data);
  put_list(page, axis, run);
  put_programs(page, run);
  put_measures(page, axis, run);
}

} // namespace

void report_page(output_file &out, const checked_run &run) {
  html_text page(out);
  put_head(page, run.request.source, "transport stream report");
  put_verdict(page, run);
  put_facts(page, run);
  try {
    put_body(page, run);
  } catch (const std::bad_alloc &) {
    page.put("<p><b>This page is incomplete</b>: memory was refused while it was written.</p>");
  }
  put_foot(page, run);
}
