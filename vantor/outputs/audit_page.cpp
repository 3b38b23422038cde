#include "outputs/audit_page.h"

#include <new>

#include "outputs/audit_lines.h"
#include "outputs/audit_page_findings.h"
#include "outputs/audit_page_streams.h"
#include "outputs/audit_records.h"
#include "outputs/audit_words.h"
#include "outputs/report_frame.h"

namespace {

const char *verdict_colour(const audit_report &report) {
  switch (report.verdict) {
  case AUDIT_PASS:
    return "good";
  case AUDIT_NOTHING_CHECKED:
    return "warn";
  default:
    return report.fails != 0 ? "bad" : "warn";
  }
}

// "Not measurable: 2.4 (rate varies by 48.0 packets)."
void put_unmeasured(html_text &page, audit_t audit) {
  const char *separator = "<p class=note>Not measurable: ";
  for_each_record(audit, audit_get_indicator, [&](size_t, const audit_indicator &indicator) {
    if (indicator.state != AUDIT_STATE_NOT_MEASURABLE)
      return;
    page.format("%s%s (%s)", separator, indicator.id, indicator.reason);
    separator = ", ";
  });
  page.put(*separator == ',' ? ".</p>" : "");
}

void put_verdict(html_text &page, const audited_run &run) {
  page.format("<section class=\"verdict %s\"><strong>%s</strong><p>",
              verdict_colour(run.facts.report), verdict_line(run.facts).c_str());
  put_counts(page, run.facts.report.findings, audit_kind_name);
  if (run.facts.packet_size == 0 && run.facts.result.end == run_end::failed)
    page.put("There is no packet to check.");
  else
    put_end(page, run.facts.result);
  if (run.is_incomplete)
    page.put(" <b>This page is incomplete</b>: memory was refused during the run.");
  page.put("</p>");
  if (run.audit)
    put_unmeasured(page, run.audit);
  page.put("</section>");
}

void put_bytes(html_text &page, const char *name, uint64_t bytes) {
  if (bytes != 0)
    put_fact(page, name, size_text(bytes).text);
}

void put_rate(html_text &page, const audit_report &report) {
  if (std::isnan(report.bitrate))
    return;
  put_fact(page, "Bitrate", text("%.3f Mbit/s", report.bitrate / 1e6));
  if (report.cbr >= 0)
    put_fact(page, "Rate", report.cbr == 1 ? "constant" : "varies");
}

// What the run was held against: limits that the profile does not use are left out.
void put_limits(html_text &page, const audit_config &settings) {
  page.put("<div><dt>Limits<dd>");
  const char *separator = "";
  const int used = settings.profile == AUDIT_DVB ? AUDIT_LIMITS : AUDIT_NIT_MS;
  for (int i = 0; i < used; ++i) {
    page.format("%s<span class=k>%s %g</span>", separator,
                audit_limit_name(static_cast<audit_limit>(i)), settings.limits[i]);
    separator = ", ";
  }
  page.put("</div>");
}

void put_facts(html_text &page, const audited_run &run) {
  const audit_facts &facts = run.facts;
  page.put("<dl>");
  put_fact(page, "File", run.request.file);
  put_bytes(page, "Size", facts.size);
  put_options(page, run.request.options);
  put_date(page);
  put_fact(page, "Profile", audit_profile_name(facts.settings.profile));
  if (run.request.first_packet > 1)
    put_fact(page, "From packet", grouped(run.request.first_packet).text);
  put_fact(page, "Packets", grouped(facts.report.packets).text);
  if (facts.packet_size != 0)
    put_fact(page, "Packet size", text("%zu bytes", facts.packet_size));
  put_bytes(page, "Before the first packet", facts.leading);
  put_bytes(page, "Lost with sync", facts.report.lost_bytes);
  put_bytes(page, "Behind the last packet", facts.tail);
  put_fact(page, "Stream time",
           std::isnan(facts.report.duration)
               ? "no clock"
               : clock_text(whole_ms(facts.report.duration), true).text);
  put_rate(page, facts.report);
  put_fact(page, "Exit status", std::to_string(facts.result.status));
  put_limits(page, facts.settings);
  page.put("</dl>");
}

void put_body(html_text &page, const audited_run &run) {
  const time_axis axis = time_axis_of(run);
  put_indicators(page, run);
  put_lanes(page, axis, run);
  put_findings(page, axis, run);
  put_streams(page, axis, run);
}

void put_foot(html_text &page, const audited_run &run) {
  page.put("<footer>Indicators are those of ETSI TR 101 290, clause 5.2. ");
  if (run.audit && std::isnan(run.facts.report.duration))
    page.put(
        "No clock: no PID had two PCRs that follow each other. Findings are placed by packet. ");
  else if (run.audit)
    page.put("Stream time is told by the PCRs of one PID at a time, from its first one on, and "
             "estimated between them; jumps of a clock are no time. ");
  page.put("Packets count from 1. Made by ");
  page.put_escaped(run.request.generator);
  page.put("</footer></main></body></html>\n");
}

} // namespace

void audit_page(output_file &out, const audited_run &run) {
  html_text page(out);
  put_head(page, run.request.source, "audit by ISO/IEC 13818-1 and ETSI TR 101 290");
  try {
    put_verdict(page, run);
    put_facts(page, run);
    if (run.audit)
      put_body(page, run);
  } catch (const std::bad_alloc &) {
    page.put("<p><b>This page is incomplete</b>: memory was refused while it was written.</p>");
  }
  put_foot(page, run);
}
