#include "outputs/report_alerts.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>

#include "outputs/alert_words.h"
#include "outputs/checks.h"

namespace {

// What keeps the page below 1 MB.
enum : size_t { LANE_MARKS = 16'384 };

// What was looked at: "1 234 packets", "off", "not checked: no PAT".
void put_check(html_text &page, const checked_run &run, tsan_alert_kind kind) {
  if (std::ranges::find(checked_kinds, kind) == std::end(checked_kinds))
    return;
  const check_report check = report_check(run, kind);
  if (check.state == check_state::off)
    return page.put("off");
  if (check.limit_ms != 0)
    page.format("limit %s ms, ", grouped(check.limit_ms).text);
  if (check.state == check_state::on)
    return page.format("on, %s %s", grouped(check.looked_at).text, check.unit);
  page.put("not checked: ");
  page.put_escaped(check.reason.text);
}

// Kinds that a file cannot raise are told only when they were.
bool is_shown(tsan_alert_kind kind, uint64_t count) {
  return count != 0 || (kind != TSAN_CC_MLR && kind < TSAN_LOST_SYNC);
}

// Whose alerts a lane holds.
short_text owner_text(const alert_row &row) {
  short_text out = {"stream"};
  if (row.program >= 0)
    snprintf(out.text, sizeof out.text, "PID %u", row.pid);
  else if (row.kind == TSAN_PAT_DIFF)
    out = {"PAT"};
  return out;
}

} // namespace

void put_checks(html_text &page, const checked_run &run) {
  page.put("<h2>Checks</h2><div class=scroll tabindex=0 role=region aria-label=Checks><table><tr>"
           "<th scope=col>Alert<th scope=col class=n>Raised<th scope=col>Looked at"
           "<th scope=col>Meaning");
  for (size_t i = 0; i < TSAN_ALERT_KINDS; ++i) {
    const auto kind = static_cast<tsan_alert_kind>(i);
    const uint64_t count = run.data.alerts[i];
    if (!is_shown(kind, count))
      continue;
    page.format("<tr><td>%s<td class=\"n %s\">%s<td>", tsan_alert_name(kind),
                count != 0 ? "hit" : "zero", grouped(count).text);
    put_check(page, run, kind);
    page.format("<td>%s", alert_meaning(kind));
  }
  page.put("</table></div>");
}

void put_timeline(html_text &page, const time_axis &axis, const report_data &data) {
  if (data.rows.empty())
    return;
  page.format("<h2>Alerts over %s</h2>", axis.in_packets ? "packets" : "stream time");
  for (const alert_row &row : data.rows) {
    page.format(
        "<div class=lane><div><span>%s <b>%s</b></span><span class=hit>%s</span></div><div>",
        owner_text(row).text, tsan_alert_name(row.kind), grouped(row.count).text);
    put_strip(page, axis, {tsan_alert_name(row.kind), row.pid, row.kind}, row.marks,
              LANE_MARKS / data.rows.size());
    page.put("</div></div>");
  }
  page.put("<div class=lane><div></div>");
  put_time_labels(page, axis);
  page.put("</div>");
  if (data.unplaced_alerts != 0)
    page.format("<p class=note>%s alerts of more PIDs and kinds are counted, but not drawn.</p>",
                grouped(data.unplaced_alerts).text);
}

void put_list(html_text &page, const time_axis &axis, const checked_run &run) {
  const report_data &data = run.data;
  if (data.listed.empty())
    return;
  page.put("<h2>Alerts one by one</h2>");
  if (data.total_alerts() > data.listed.size())
    page.format("<p class=note>The first %zu of each kind%s.</p>", size_t{MAX_LISTED},
                data.total_allowed() != 0 ? ", and of those that are allowed" : "");
  page.format("<div class=scroll tabindex=0 role=region aria-label=\"Alerts one by one\">"
              "<table class=list><tr>%s<th scope=col>Alert<th scope=col class=n>PID"
              "<th scope=col>What<th scope=col class=n>Packet<th scope=col class=n>At byte",
              axis.in_packets ? "" : "<th scope=col class=n>Time");
  for (const listed_alert &entry : data.listed) {
    const tsan_alert &a = entry.alert;
    page.put("<tr>");
    if (!axis.in_packets)
      page.format("<td class=n>%s", axis_text(axis, entry.at).text);
    page.format("<td class=k>%s", tsan_alert_name(a.kind));
    if (a.program >= 0)
      page.format("<td class=\"n i\">%u", a.pid);
    else
      page.put("<td>");
    page.put("<td class=w>");
    page.put(alert_detail(a).text);
    if (entry.allowed) {
      page.put(" <small>allowed: ");
      page.put_escaped(entry.allowed->reason);
      page.put("</small>");
    }
    page.format("<td class=\"n p\">%s<td class=\"n b\">%s", grouped(a.pkt_idx).text,
                a.pkt_idx != 0 ? grouped(packet_offset(run.request, a.pkt_idx)).text : "");
  }
  page.put("</table></div>");
}
