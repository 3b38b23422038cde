#include "outputs/report_alerts.h"

#include <algorithm>
#include <cinttypes>

#include "outputs/run_info.h"
#include "tsa/config.h"

namespace {

// What keeps the page below 1 MB.
enum : size_t {
  MAX_LANES = 100,
  LANE_MARKS = 25'600,
  MAX_DRAWN = 512,
};

constexpr const char *meanings[TSAN_ALERT_KINDS] = {
    "continuity counter broken: packets lost or repeated",
    "continuity counter began anew",
    "the same loss on several streams",
    "audio time stamp too far from the PCR",
    "audio less than 1 ms from video, but not on it",
    "audio too far from video",
    "PCRs too far apart",
    "list of programs changed",
    "PMT changed",
    "announced stream without a packet",
    "framing lost",
    "packet without sync byte: the run ended there",
    "nothing to analyze: the run ended there",
};

std::string limit_text(size_t ms) {
  return ms != 0 ? "limit " + grouped(ms) + " ms" : "not checked";
}

std::string check_text(tsan_alert_kind kind) {
  const tsan_config &tsa = g_cfg.tsa;
  switch (kind) {
  case TSAN_CC_BRK:
  case TSAN_CC_RST:
    return tsa.is_enabled && tsa.cc_track ? "checked" : "not checked";
  case TSAN_PCR_DELTA:
    return limit_text(tsa.is_enabled ? tsa.max_pcr_delta : 0);
  case TSAN_AV_DELTA0:
  case TSAN_AV_DELTA_PLUS:
    return limit_text(tsa.is_enabled ? tsa.max_pdts_delta : 0);
  case TSAN_PCR_FREQ:
    return limit_text(tsa.pcr_freq_ms);
  default:
    return "checked";
  }
}

// Kinds that a file cannot raise are told only when they were.
bool is_shown(tsan_alert_kind kind, uint64_t count) {
  return count != 0 || (kind != TSAN_CC_MLR && kind < TSAN_LOST_SYNC);
}

// Whose alerts a lane holds.
std::string owner_text(int program, uint32_t pid, tsan_alert_kind kind) {
  if (program < 0)
    return kind == TSAN_PAT_DIFF ? "PAT" : "stream";
  return "PID " + std::to_string(pid);
}

void put_detail(html_text &page, const tsan_alert &a) {
  const char *stamp = a.is_pts ? "PTS" : "DTS";
  switch (a.kind) {
  case TSAN_CC_BRK:
  case TSAN_CC_RST:
    page.put(a.last_cc == a.current_cc ? "counter %d twice" : "counter %d, then %d", a.last_cc,
             a.current_cc);
    break;
  case TSAN_PCR_DELTA:
    page.put("%s %" PRIu64 " ms from the PCR", stamp, a.delta_ms);
    break;
  case TSAN_AV_DELTA0:
    page.put("%s less than 1 ms from PID %u", stamp, a.ref_pid);
    break;
  case TSAN_AV_DELTA_PLUS:
    page.put("%s %" PRIu64 " ms from PID %u", stamp, a.delta_ms, a.ref_pid);
    break;
  case TSAN_PCR_FREQ:
    page.put("%" PRIu64 " ms between PCRs", a.delta_ms);
    break;
  case TSAN_PAT_DIFF:
    page.put("%zu PIDs added, %zu gone, %zu now", a.added, a.deleted, a.programs);
    break;
  case TSAN_PMT_DIFF:
    page.put("%zu streams, then %zu entries", a.old_tracks, a.new_tracks);
    break;
  case TSAN_PID_NDAT:
    page.put("stream %zu of the program has no packet", a.track);
    break;
  default:
    break;
  }
}

} // namespace

void put_counts(html_text &page, const report_data &data) {
  page.put("<h2>Checks</h2><div class=scroll><table><tr><th>Alert<th "
           "class=n>Raised<th>Check<th>Meaning");
  for (size_t i = 0; i < TSAN_ALERT_KINDS; ++i) {
    const auto kind = static_cast<tsan_alert_kind>(i);
    const uint64_t count = data.alerts[i];
    if (!is_shown(kind, count))
      continue;
    page.put("<tr><td>%s<td class=\"n %s\">%s<td>%s<td>%s", tsan_alert_name(kind),
             count != 0 ? "hit" : "zero", grouped(count).c_str(), check_text(kind).c_str(),
             meanings[i]);
  }
  page.put("</table></div>");
}

void put_timeline(html_text &page, const time_axis &axis, const report_data &data) {
  if (data.rows.empty())
    return;
  const size_t lanes = std::min<size_t>(data.rows.size(), MAX_LANES);
  size_t merged = 1;
  while (axis.buckets(merged) > std::min<size_t>(MAX_DRAWN, LANE_MARKS / lanes))
    merged *= 2;
  page.put("<h2>Alerts over %s</h2>", axis.in_packets ? "packets" : "stream time");
  for (size_t i = 0; i < lanes; ++i) {
    const alert_row &row = data.rows[i];
    page.put("<div class=lane><div><span>%s <b>%s</b></span><span class=hit>%s</span></div><div>",
             owner_text(row.program, row.pid, row.kind).c_str(), tsan_alert_name(row.kind),
             grouped(row.count).c_str());
    put_strip(page, axis, row, merged);
    page.put("</div></div>");
  }
  page.put("<div class=lane><div></div>");
  put_time_labels(page, axis, merged);
  page.put("</div>");
  if (lanes < data.rows.size())
    page.put("<p class=note>%zu more pairs of PID and alert are not drawn.</p>",
             data.rows.size() - lanes);
  if (data.unplotted != 0)
    page.put(
        "<p class=note>%s values came when no room was left to place them; they are counted.</p>",
        grouped(data.unplotted).c_str());
}

void put_list(html_text &page, const time_axis &axis, const report_data &data) {
  if (data.listed.empty())
    return;
  page.put("<h2>Alerts one by one</h2>");
  if (data.total_alerts() > data.listed.size())
    page.put("<p class=note>The first %zu of each kind.</p>", size_t{MAX_LISTED});
  page.put("<div class=scroll><table class=list><tr>%s<th>Alert<th class=n>PID<th>What<th "
           "class=n>Packet<th "
           "class=n>At byte",
           axis.in_packets ? "" : "<th class=n>Time");
  for (const listed_alert &entry : data.listed) {
    const tsan_alert &a = entry.alert;
    page.put("<tr>");
    if (!axis.in_packets)
      page.put("<td class=n>%s", axis_text(axis, entry.at).c_str());
    page.put("<td class=k>%s", tsan_alert_name(a.kind));
    page.put(a.program >= 0 ? "<td class=\"n i\">%u" : "<td>", a.pid);
    page.put("<td class=w>");
    put_detail(page, a);
    page.put("<td class=\"n p\">%s<td class=\"n b\">%s", grouped(a.pkt_idx).c_str(),
             a.pkt_idx != 0 ? grouped(packet_offset(a.pkt_idx)).c_str() : "");
  }
  page.put("</table></div>");
}
