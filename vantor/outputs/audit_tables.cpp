#include "outputs/audit_tables.h"

#include <cmath>

#include "outputs/audit_kinds.h"
#include "outputs/audit_lines.h"
#include "outputs/audit_records.h"
#include "outputs/audit_words.h"
#include "outputs/text_table.h"

namespace {

constexpr const char *none = "-";
constexpr auto LEFT = text_table::LEFT;

std::string pid_text(int32_t pid) {
  return pid >= 0 ? text("%d (0x%04X)", pid, static_cast<unsigned>(pid)) : none;
}

std::string packet_text(uint64_t packet) {
  return packet != 0 ? std::to_string(packet) : none;
}

// Rounded to so many decimals.
std::string number_text(double value, int decimals) {
  return std::isfinite(value) ? text("%.*f", decimals, value) : none;
}

std::string measure_text(double value, const char *unit) {
  return std::isfinite(value) ? (value < 0 ? "-" : "") + in_units(value, unit) : none;
}

// "1,2,3", cut so that a PID of many programs leaves the others their room.
std::string join(const uint16_t *numbers, size_t count) {
  constexpr size_t most = 4;
  std::string out;
  for (size_t i = 0; i < count && i < most; ++i)
    out += (i != 0 ? "," : "") + std::to_string(numbers[i]);
  return count == 0 ? none : count > most ? out + ",..." : out;
}

// Without "pass" and "fail" looking alike.
const char *state_text(audit_state state) {
  constexpr const char *texts[] = {"pass", "FAIL", "WARN", "off", "not measurable"};
  return texts[state];
}

std::string stream_line(const audit_facts &facts) {
  const audit_report &r = facts.report;
  const char *rate = r.cbr < 0 ? "unknown whether constant" : r.cbr == 1 ? "constant" : "varies";
  std::string line = counted(r.packets, "packet") + text(" of %zu bytes, ", facts.packet_size);
  line += std::isnan(r.duration) ? "no clock" : clock_time(r.duration, 1, none);
  if (std::isfinite(r.bitrate))
    line += text(", %.0f bit/s (%s)", r.bitrate, rate);
  return line + text(", profile %s\n", audit_profile_name(facts.settings.profile));
}

std::string indicator_table(audit_t audit, const audit_facts &facts) {
  text_table table({{"id", LEFT},
                    {"name", LEFT},
                    {"state", LEFT},
                    {"findings"},
                    {"first"},
                    {"PID"},
                    {"packet"},
                    {"worst"},
                    {"limit"},
                    {"reason", LEFT}});
  for_each_record(audit, audit_get_indicator, [&](size_t, const audit_indicator &i) {
    table.cell(i.id);
    table.cell(i.name);
    table.cell(state_text(i.state));
    table.cell(std::to_string(i.findings));
    table.cell(clock_time(i.first_time, 1, none));
    table.cell(pid_text(i.first_pid));
    table.cell(packet_text(i.first_packet));
    table.cell(measure_text(i.worst, i.unit));
    table.cell(measure_text(i.limit, i.unit));
    const uint64_t allowed = facts.allowed.of(i);
    table.cell(allowed != 0 ? std::to_string(allowed) + " allowed" : i.reason);
  });
  return "\nIndicators of ETSI TR 101 290\n" + table.lines();
}

std::string other_findings(const audit_report &report) {
  text_table table({{"finding", LEFT}, {"severity", LEFT}, {"findings"}, {"", LEFT}});
  bool is_any = false;
  for (const kind_without_indicator &other : kinds_without_indicator) {
    if (report.findings[other.kind] == 0)
      continue;
    is_any = true;
    table.cell(audit_kind_name(other.kind));
    table.cell(audit_severity_name(audit_kind_severity(other.kind)));
    table.cell(std::to_string(report.findings[other.kind]));
    table.cell(other.meaning);
  }
  return "\nFindings that have no indicator\n" + (is_any ? table.lines() : "none\n");
}

void put_pid(text_table &table, const audit_pid &p) {
  table.cell(pid_text(p.pid));
  table.cell(p.what);
  table.cell(join(p.program_numbers, p.programs));
  table.cell(std::to_string(p.packets));
  table.cell(number_text(p.share * 100, 3));
  for (const double bitrate : {p.bitrate, p.bitrate_min, p.bitrate_max})
    table.cell(number_text(bitrate, 0));
  for (const uint64_t count : {p.scrambled, p.tei, p.duplicates, p.lost, p.pcrs})
    table.cell(std::to_string(count));
  table.cell(number_text(p.pcr_max_ms, 3));
  for (const double delay : p.pts_delay_ms)
    table.cell(number_text(delay, 1));
  table.cell(number_text(p.longest_gap_ms, 1));
}

std::string pid_table(audit_t audit) {
  text_table table({{"PID"},
                    {"what", LEFT},
                    {"programs", LEFT},
                    {"packets"},
                    {"share %"},
                    {"bit/s"},
                    {"least"},
                    {"greatest"},
                    {"scrambled"},
                    {"TEI"},
                    {"dupl."},
                    {"lost"},
                    {"PCRs"},
                    {"apart ms"},
                    {"PTS delay ms, least"},
                    {"average"},
                    {"greatest"},
                    {"gap ms"}});
  for_each_record(audit, audit_get_pid, [&](size_t, const audit_pid &pid) { put_pid(table, pid); });
  return "\nPIDs\n" + table.lines();
}

} // namespace

std::string audit_tables(audit_t audit, const audit_facts &facts) {
  std::string out;
  if (audit)
    out = stream_line(facts) + indicator_table(audit, facts) + other_findings(facts.report) +
          pid_table(audit) + "\n";
  return out + verdict_line(facts) + "\n";
}
