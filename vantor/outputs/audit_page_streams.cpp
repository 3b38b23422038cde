#include "outputs/audit_page_streams.h"

#include <algorithm>
#include <cstring>

#include "outputs/audit_records.h"
#include "outputs/audit_words.h"

namespace {

// What keeps the page below 1 MB.
enum : size_t {
  MAX_PROGRAMS = 64,
  MAX_STREAMS = 400, // of all programs
  MAX_ROWS = 400,
  MAX_PLOTS = 48,
  PLOT_BUCKETS = 5'000,
  MAX_DRAWN = 512, // buckets of one plot
  MAX_SPARKS = 60,
  SPARK_BUCKETS = 3'000,
};

// Seconds, where the time stamps are of another time base.
value_unit unit_of(const audit_series &s) {
  const int64_t parts = series_parts[s.kind];
  if (s.kind == AUDIT_BITRATE)
    return {"kbit/s", parts};
  const bool is_far = std::max(std::abs(s.sum.min), std::abs(s.sum.max)) >= 100'000 * parts;
  return is_far ? value_unit{"s", 1000 * parts} : value_unit{"ms", parts};
}

struct pid_row {
  audit_pid pid;
  std::string programs; // that list it
};

std::vector<pid_row> rows_of(audit_t audit) {
  std::vector<pid_row> rows;
  for_each_record(audit, audit_get_pid, [&](size_t, const audit_pid &pid) {
    rows.push_back({pid, {}});
    for (size_t i = 0; i < std::min<size_t>(pid.programs, 4); ++i)
      rows.back().programs += (i != 0 ? "," : "") + std::to_string(pid.program_numbers[i]);
    rows.back().programs += pid.programs > 4 ? ",\u2026" : "";
  });
  return rows;
}

const pid_row *row_of(const std::vector<pid_row> &rows, uint16_t pid) {
  const auto found = std::ranges::lower_bound(rows, pid, {}, [](auto &row) { return row.pid.pid; });
  return found != rows.end() && found->pid.pid == pid ? &*found : nullptr;
}

void put_count(html_text &page, uint64_t count, const char *style) {
  page.format("<td class=\"n %s\">%s", count != 0 ? style : "zero", grouped(count).text);
}

// --- Programs ---

void put_stream(html_text &page, const audit_stream &stream, const pid_row *row) {
  const char *kind = stream.kind == 'V'   ? "video"
                     : stream.kind == 'A' ? "audio"
                     : stream.kind == 'S' ? "subtitles"
                                          : "data";
  page.format("<tr><td class=n>%u<td>%s<td>0x%02X ", stream.pid, kind, stream.stream_type);
  if (row)
    page.put_escaped(row->pid.what[1] == ' ' ? row->pid.what + 2 : "");
  page.format("<td>%s<td class=\"n %s\">%s", stream.is_protected ? "yes" : "no", row ? "" : "zero",
              row ? grouped(row->pid.packets).text : "0");
}

// Returns how many were put.
size_t put_program(html_text &page, const audited_run &run, const std::vector<pid_row> &rows,
                   size_t index, const audit_program &program, size_t most) {
  page.format("<h3>Program %u <small>PMT on PID %u, ", program.program_number, program.pmt_pid);
  if (program.pcr_pid < 0)
    page.put("which never came</small></h3>");
  else if (program.pcr_pid == 0x1FFF)
    page.put("no PCR</small></h3>");
  else
    page.format("PCR on PID %d</small></h3>", program.pcr_pid);
  const size_t put = std::min(program.streams, most);
  if (put == 0)
    return 0;
  page.format("<div class=scroll tabindex=0 role=region aria-label=\"Streams of program %u\">"
              "<table><tr><th scope=col class=n>PID<th scope=col>Kind<th scope=col>Type"
              "<th scope=col>Under CA<th scope=col class=n>Packets",
              program.program_number);
  audit_stream stream = {};
  stream.size = sizeof stream;
  for (size_t i = 0; i < put && audit_get_stream(run.audit, index, i, &stream) == 0; ++i)
    put_stream(page, stream, row_of(rows, stream.pid));
  page.put("</table></div>");
  return put;
}

void put_programs(html_text &page, const audited_run &run, const std::vector<pid_row> &rows) {
  if (run.facts.report.programs == 0)
    return;
  page.put("<h2>Programs and streams</h2>");
  size_t streams = 0, left = MAX_STREAMS;
  for_each_record(run.audit, audit_get_program, [&](size_t i, const audit_program &program) {
    streams += program.streams;
    if (i < MAX_PROGRAMS)
      left -= put_program(page, run, rows, i, program, left);
  });
  if (run.facts.report.programs > MAX_PROGRAMS || left == 0)
    page.format("<p class=note>In all there are %zu programs with %zu streams; --json has them."
                "</p>",
                run.facts.report.programs, streams);
}

// --- PIDs ---

std::string rounded(double value, int decimals) {
  return std::isfinite(value)
             ? (value < 0 ? "\u2212" : "") + text("%.*f", decimals, std::abs(value))
             : "";
}

void put_pid(html_text &page, const audit_pid &p, const std::string &programs, double most) {
  page.format("<tr><td class=n>%u<td class=k>0x%04X<td class=k>", p.pid, p.pid);
  page.put_escaped(p.what);
  page.format("<td>%s<td class=n>%s<td class=n>%.3f<td class=bar><i style=width:%.1f%%></i>"
              "<td class=n>%s<td class=n>%s<td class=n>%s",
              programs.c_str(), grouped(p.packets).text, p.share * 100, 100 * p.share / most,
              rounded(p.bitrate / 1000, 1).c_str(), rounded(p.bitrate_min / 1000, 1).c_str(),
              rounded(p.bitrate_max / 1000, 1).c_str());
  put_count(page, p.scrambled, "");
  put_count(page, p.tei, "hit");
  put_count(page, p.duplicates, "");
  put_count(page, p.lost, "hit");
  put_count(page, p.pcrs, "");
  page.format("<td class=n>%s", rounded(p.pcr_max_ms, 2).c_str());
  for (const double delay : p.pts_delay_ms)
    page.format("<td class=n>%s", rounded(delay, 1).c_str());
  page.format("<td class=n>%s", rounded(p.longest_gap_ms, 1).c_str());
}

// Those that a table lists come first, then those with most packets.
std::vector<const pid_row *> pids_worth_a_row(const std::vector<pid_row> &rows) {
  std::vector<const pid_row *> order;
  order.reserve(rows.size());
  for (const pid_row &row : rows)
    order.push_back(&row);
  const auto rank = [](const pid_row *row) {
    return std::pair(strcmp(row->pid.what, "unreferenced") != 0, row->pid.packets);
  };
  if (order.size() > MAX_ROWS) {
    std::ranges::partial_sort(order, order.begin() + MAX_ROWS, std::greater{}, rank);
    order.resize(MAX_ROWS);
    std::ranges::sort(order);
  }
  return order;
}

void put_pids(html_text &page, const std::vector<pid_row> &rows) {
  page.put(
      "<h2>PIDs</h2><div class=\"scroll wide\" tabindex=0 role=region aria-label=PIDs><table "
      "class=pids>"
      "<thead><tr><td colspan=7><th scope=colgroup colspan=3>Bitrate, kbit/s<td colspan=4>"
      "<th scope=colgroup colspan=2>PCRs<th scope=colgroup colspan=3>PTS delay, ms<td>"
      "<tr><th scope=col class=n>PID<th scope=col>hex<th scope=col>What<th scope=col>Program"
      "<th scope=col class=n>Packets<th scope=col class=n>Share, %<th scope=col>"
      "<th scope=col class=n>average<th scope=col class=n>least<th scope=col class=n>greatest"
      "<th scope=col class=n>Scrambled<th scope=col class=n>TEI<th scope=col class=n>Duplicates"
      "<th scope=col class=n>Lost<th scope=col class=n>count<th scope=col class=n>apart, ms"
      "<th scope=col class=n>least<th scope=col class=n>average<th scope=col class=n>greatest"
      "<th scope=col class=n>Gap, ms<tbody>");
  double most = 0, shown = 0;
  for (const pid_row &row : rows)
    most = std::max(most, row.pid.share);
  const std::vector<const pid_row *> order = pids_worth_a_row(rows);
  for (const pid_row *row : order) {
    put_pid(page, row->pid, row->programs, most);
    shown += row->pid.share;
  }
  page.put("</table></div>");
  if (order.size() < rows.size())
    page.format("<p class=note>%zu more PIDs, with %.3f %% of the packets, are not listed here; "
                "standard error and --json have them.</p>",
                rows.size() - order.size(), 100 * (1 - shown));
  page.put("<p class=note>Lost: at least so many, by continuity counters. Least and greatest "
           "bitrate: over whole seconds. Apart: longest interval of PCRs. Gap: longest time "
           "without a packet, of video and audio.</p>");
}

// --- Measures ---

const char *name_of(audit_sample_kind kind) {
  constexpr const char *names[] = {"PCR interval", "PTS delay", "DTS delay", "Bitrate"};
  return names[kind];
}

// DTS is told only where it is not PTS.
bool is_plotted(const audit_page_data &data, const audit_series &s) {
  if (s.kind == AUDIT_BITRATE)
    return false;
  if (s.kind != AUDIT_DTS_DELAY)
    return true;
  const audit_series *pts = data.of(s.pid, AUDIT_PTS_DELAY);
  return !pts || pts->sum.total != s.sum.total || pts->sum.min != s.sum.min ||
         pts->sum.max != s.sum.max;
}

size_t limit_of(const audited_run &run, const audit_series &s) {
  return s.kind == AUDIT_PCR_INTERVAL
             ? static_cast<size_t>(run.facts.settings.limits[AUDIT_PCR_MS] * 100)
             : 0;
}

void put_measure_title(html_text &page, const audit_series &s, const pid_row *row) {
  page.format("<h3>%s <small>PID %u", name_of(s.kind), s.pid);
  if (row) {
    page.put(", ");
    page.put_escaped(row->pid.what);
  }
  page.format(", %s", unit_of(s).name);
  if (row && s.kind == AUDIT_PCR_INTERVAL && std::isfinite(row->pid.accuracy_ns[0]))
    page.format(", accuracy %s to %s ns", rounded(row->pid.accuracy_ns[0], 0).c_str(),
                rounded(row->pid.accuracy_ns[1], 0).c_str());
  page.put("</small></h3>");
}

// Where there are more than can be drawn, PCR intervals leave half of the room to time stamps.
void keep_what_is_drawn(std::vector<const audit_series *> &order) {
  constexpr ptrdiff_t most = MAX_PLOTS;
  const auto stamps = std::ranges::find_if(
      order, [](const audit_series *s) { return s->kind != AUDIT_PCR_INTERVAL; });
  const ptrdiff_t room = std::max(most / 2, most - (order.end() - stamps));
  if (stamps - order.begin() > room)
    order.erase(order.begin() + room, stamps);
  order.resize(std::min<size_t>(order.size(), MAX_PLOTS));
}

void put_measures(html_text &page, const time_axis &axis, const audited_run &run,
                  const std::vector<pid_row> &rows) {
  std::vector<const audit_series *> order;
  for (const audit_series &s : run.data.measured)
    if (is_plotted(run.data, s))
      order.push_back(&s);
  if (order.empty())
    return;
  std::ranges::sort(order, {}, [](auto *s) {
    return std::tuple(s->kind != AUDIT_PCR_INTERVAL, s->pid, s->kind);
  });
  const size_t all = order.size();
  keep_what_is_drawn(order);
  page.put("<h2>Clocks and time stamps</h2><p class=note>Line: average; band: least to greatest, "
           "per stretch of time. On the right, how often each value came. Delay: how long after "
           "its arrival, on the program's clock, a picture or frame is decoded (DTS) or shown "
           "(PTS).</p>");
  for (const audit_series *s : order) {
    put_measure_title(page, *s, row_of(rows, s->pid));
    put_plot(page, axis, {name_of(s->kind), s->pid, s->kind, unit_of(*s)}, *s, limit_of(run, *s),
             std::min<size_t>(MAX_DRAWN, PLOT_BUCKETS / order.size()));
  }
  if (order.size() < all)
    page.format("<p class=note>%zu more measures are not drawn.</p>", all - order.size());
}

void put_bitrate(html_text &page, const time_axis &axis, const audit_series &s, const pid_row *row,
                 size_t max_buckets) {
  const value_unit unit = unit_of(s);
  page.format("<div class=\"lane rate\"><div><span>PID %u <b>", s.pid);
  page.put_escaped(row ? row->pid.what : "");
  page.format("</b></span><small>%s to %s, average %s</small></div><div>",
              value_text(s.sum.min, unit).text, value_text(s.sum.max, unit).text,
              average_text(s.sum, unit).text);
  put_spark(page, axis, {name_of(s.kind), s.pid, s.kind, unit}, s, max_buckets);
  page.put("</div></div>");
}

void put_bitrates(html_text &page, const time_axis &axis, const audited_run &run,
                  const std::vector<pid_row> &rows) {
  std::vector<const audit_series *> order;
  for (const audit_series &s : run.data.measured)
    if (s.kind == AUDIT_BITRATE)
      order.push_back(&s);
  if (order.empty())
    return;
  std::ranges::sort(order, std::greater{}, [](auto *s) { return s->sum.total; });
  const size_t all = order.size(), sparks = std::min<size_t>(all, MAX_SPARKS);
  order.resize(sparks);
  std::ranges::sort(order, {}, &audit_series::pid);
  page.put("<h2>Bitrates</h2><p class=note>Of each PID over stream time, by whole seconds, in "
           "kbit/s, from 0 to its greatest.</p>");
  for (const audit_series *s : order)
    put_bitrate(page, axis, *s, row_of(rows, s->pid),
                std::min<size_t>(MAX_DRAWN, SPARK_BUCKETS / sparks));
  page.put("<div class=\"lane rate\"><div></div>");
  put_time_labels(page, axis);
  page.put("</div>");
  if (sparks < rows.size())
    page.format("<p class=note>%zu more PIDs are not drawn.</p>", rows.size() - sparks);
}

} // namespace

void put_streams(html_text &page, const time_axis &axis, const audited_run &run) {
  const std::vector<pid_row> rows = rows_of(run.audit);
  put_programs(page, run, rows);
  put_pids(page, rows);
  put_measures(page, axis, run, rows);
  put_bitrates(page, axis, run, rows);
}
