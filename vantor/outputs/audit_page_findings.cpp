#include "outputs/audit_page_findings.h"

#include <algorithm>
#include <cinttypes>

#include "outputs/audit_kinds.h"
#include "outputs/audit_records.h"
#include "outputs/audit_words.h"

namespace {

// What keeps the page below 1 MB.
enum : size_t { LANE_MARKS = 8'192 };

// Only what was found wanting, and what was looked at and found well, has a colour.
const char *state_colour(audit_state state) {
  constexpr const char *colours[] = {"good", "bad", "warn", "none", "none"};
  return colours[state];
}

const char *severity_colour(audit_severity severity) {
  constexpr const char *colours[] = {"none", "warn", "bad"};
  return colours[severity];
}

// A name that leads to its findings, when there are any.
void put_name(html_text &page, const audited_run &run, const char *id) {
  if (run.data.group(id))
    page.format("<th scope=row><a href=\"#%s\">%s</a>", id, id);
  else
    page.format("<th scope=row>%s", id);
}

std::string measure(double value, const char *unit) {
  return std::isfinite(value) ? (value < 0 ? "\u2212" : "") + in_units(value, unit) : "";
}

void put_state(html_text &page, const audited_run &run, const audit_indicator &i) {
  constexpr const char *words[] = {"pass", "FAIL", "WARN", "off", "not measurable"};
  page.format("<td class=\"state %s\">%s", state_colour(i.state), words[i.state]);
  if (const uint64_t allowed = run.facts.allowed.of(i))
    page.format("<small>: %s allowed</small>", grouped(allowed).text);
  if (i.reason[0] != '\0')
    page.format("<small>: %s</small>", i.reason);
}

void put_indicator(html_text &page, const audited_run &run, const audit_indicator &i) {
  page.put("<tr>");
  put_name(page, run, i.id);
  page.format("<td>%s", i.name);
  put_state(page, run, i);
  page.format("<td class=\"n %s\">%s<td class=n>", i.findings != 0 ? "" : "zero",
              grouped(i.findings).text);
  if (std::isfinite(i.first_time))
    page.put(clock_text(whole_ms(i.first_time), true).text);
  else if (i.findings != 0)
    page.format("packet %s", grouped(i.first_packet).text);
  page.put("<td class=n>");
  if (i.first_pid >= 0)
    page.format("%d", i.first_pid);
  page.format("<td class=n>%s<td class=n>%s", measure(i.worst, i.unit).c_str(),
              i.limit == 0 ? "off" : measure(i.limit, i.unit).c_str());
}

void put_other_kinds(html_text &page, const audited_run &run) {
  const audit_report &report = run.facts.report;
  const auto was_found = [&](const kind_without_indicator &k) { return report.findings[k.kind]; };
  if (std::ranges::none_of(kinds_without_indicator, was_found))
    return;
  page.put("<h3>Findings that no indicator counts</h3><div class=scroll tabindex=0 role=region "
           "aria-label=\"Findings that no indicator counts\"><table><tr><th scope=col>Kind"
           "<th scope=col>Severity<th scope=col class=n>Findings<th scope=col>Meaning");
  for (const kind_without_indicator &k : kinds_without_indicator) {
    if (!was_found(k))
      continue;
    const audit_severity severity = audit_kind_severity(k.kind);
    page.put("<tr>");
    put_name(page, run, audit_kind_name(k.kind));
    page.format("<td class=\"state %s\">%s<td class=n>%s<td>%s", severity_colour(severity),
                audit_severity_name(severity), grouped(report.findings[k.kind]).text, k.meaning);
  }
  page.put("</table></div>");
}

void put_lane(html_text &page, const time_axis &axis, const finding_lane &lane, size_t max_marks) {
  const char *kind = audit_kind_name(lane.kind);
  page.format("<div class=\"lane %s\"><div><span>%s <b>%s</b></span><span class=state>%s</span>"
              "</div><div>",
              severity_colour(lane.severity), lane.pid >= 0 ? text("PID %d", lane.pid).c_str() : "",
              kind, grouped(lane.count).text);
  put_strip(page, axis, {kind, static_cast<uint32_t>(lane.pid), lane.kind},
            axis.in_packets ? lane.by_packet : lane.by_time, max_marks);
  page.put("</div></div>");
}

void put_finding(html_text &page, const time_axis &axis, const listed_finding &f) {
  page.put("<tr>");
  if (!axis.in_packets)
    page.format("<td class=n>%s",
                std::isnan(f.time) ? "" : clock_text(whole_ms(f.time), true).text);
  page.format("<td class=\"k state %s\">%s<td class=\"n i\">", severity_colour(f.severity),
              audit_kind_name(f.kind));
  if (f.pid >= 0)
    page.format("%d", f.pid);
  page.put("<td class=\"n g\">");
  if (f.program_number >= 0)
    page.format("%d", f.program_number);
  page.put("<td class=w>");
  page.put(f.what);
  if (f.allowed) {
    page.put(" <small>");
    page.put_escaped(allowed_text(*f.allowed));
    page.put("</small>");
  }
  page.format("<td class=\"n p\">%s<td class=\"n b\">%s", grouped(f.packet).text,
              grouped(f.offset).text);
}

void put_group(html_text &page, const time_axis &axis, const finding_group &group, const char *name,
               uint64_t count) {
  page.format("<h3 id=\"%s\">%s%s%s <small>%s</small></h3>", group.id, group.id,
              *name != '\0' ? " " : "", name, counted(count, "finding").c_str());
  page.format("<div class=scroll tabindex=0 role=region aria-label=\"Findings of %s\">"
              "<table class=list><tr>%s<th scope=col>Kind<th scope=col class=n>PID"
              "<th scope=col class=n>Program<th scope=col>What<th scope=col class=n>Packet"
              "<th scope=col class=n>At byte",
              group.id, axis.in_packets ? "" : "<th scope=col class=n>Time");
  for (const listed_finding &f : group.first)
    put_finding(page, axis, f);
  page.put("</table></div>");
  if (count > group.first.size())
    page.format("<p class=note>%s more are not listed here; %s of them are in --json.</p>",
                grouped(count - group.first.size()).text,
                grouped(group.count - group.first.size()).text);
}

} // namespace

void put_indicators(html_text &page, const audited_run &run) {
  page.put("<h2>Indicators of ETSI TR 101 290</h2><div class=scroll tabindex=0 role=region "
           "aria-label=Indicators><table><tr><th scope=col colspan=2>Indicator"
           "<th scope=col>State<th scope=col class=n>Findings<th scope=col class=n>First"
           "<th scope=col class=n>PID<th scope=col class=n>Worst<th scope=col class=n>Limit");
  char priority = '0';
  for_each_record(run.audit, audit_get_indicator, [&](size_t, const audit_indicator &i) {
    if (i.id[0] != priority) {
      constexpr const char *words[] = {"First", "Second", "Third"};
      priority = i.id[0];
      page.format("<tbody><tr><th scope=rowgroup colspan=8 class=part>%s priority",
                  words[priority - '1']);
    }
    put_indicator(page, run, i);
  });
  page.put("</table></div>");
  put_other_kinds(page, run);
}

void put_lanes(html_text &page, const time_axis &axis, const audited_run &run) {
  const audit_page_data &data = run.data;
  const bool is_of_pids = data.without_lane == 0;
  const std::vector<finding_lane> &lanes = is_of_pids ? data.lanes : data.kinds;
  if (lanes.empty())
    return;
  page.format("<h2>Findings over %s</h2>", axis.in_packets ? "packets" : "stream time");
  if (!is_of_pids)
    page.put("<p class=note>There are too many PIDs with findings for each to have a lane.</p>");
  for (const finding_lane &lane : lanes)
    put_lane(page, axis, lane, LANE_MARKS / lanes.size());
  page.put("<div class=lane><div></div>");
  put_time_labels(page, axis);
  page.put("</div>");
  if (run.facts.report.undelivered != 0)
    page.format("<p class=note>%s more findings, of kinds that came too often, are only counted."
                "</p>",
                grouped(run.facts.report.undelivered).text);
}

void put_findings(html_text &page, const time_axis &axis, const audited_run &run) {
  if (run.data.groups.empty())
    return;
  page.put("<h2>Findings</h2>");
  for_each_record(run.audit, audit_get_indicator, [&](size_t, const audit_indicator &i) {
    if (const finding_group *group = run.data.group(i.id))
      put_group(page, axis, *group, i.name, i.findings);
  });
  for (const kind_without_indicator &k : kinds_without_indicator)
    if (const finding_group *group = run.data.group(audit_kind_name(k.kind)))
      put_group(page, axis, *group, "", run.facts.report.findings[k.kind]);
}
