#include "outputs/junit_audit.h"

#include <cinttypes>

#include "outputs/audit_kinds.h"
#include "outputs/audit_lines.h"
#include "outputs/audit_records.h"
#include "outputs/audit_words.h"
#include "outputs/junit.h"

namespace {

// The findings of a group, `total` with those that were only counted; `fails`: these are fails.
void tell_group(junit_case &c, const finding_group *group, uint64_t total, bool fails,
                const char *meaning) {
  if (!group)
    return;
  for (const listed_finding &f : group->first)
    add_place(c, {f.time, f.pid, f.packet, std::string(audit_kind_name(f.kind)) + ", " + f.what,
                  f.allowed, f.severity == AUDIT_FAIL});
  const uint64_t undelivered = fails ? total - group->count : 0;
  if (group->fails + undelivered != 0)
    fail_case(c, group->fails + undelivered, "finding", meaning);
}

void skip(junit_case &c, const char *why) {
  c.state = junit_state::skipped;
  c.message = why;
}

junit_case case_of(const audited_run &run, const audit_indicator &i) {
  junit_case c = {std::string(i.id) + " " + i.name};
  tell_group(c, run.data.group(i.id), i.findings, i.state == AUDIT_STATE_FAIL, "");
  if (i.state == AUDIT_STATE_OFF)
    skip(c, "the check is off");
  else if (i.state == AUDIT_STATE_NOT_MEASURABLE)
    skip(c, i.reason);
  return c;
}

// Why findings of a kind cannot have come; empty: they can.
std::string why_unjudged(const audited_run &run, audit_kind kind) {
  if (kind == AUDIT_RATE_LOSS && run.facts.report.cbr != 1)
    return run.facts.report.cbr == 0 ? "rate varies" : "unknown whether the rate is constant";
  std::string why;
  if (kind >= AUDIT_STAMP_LATE && kind <= AUDIT_STAMP_JUMP)
    for_each_record(run.audit, audit_get_indicator, [&](size_t, const audit_indicator &i) {
      if (std::string_view(i.id) == "2.5" && i.state == AUDIT_STATE_NOT_MEASURABLE)
        why = i.reason;
    });
  return why;
}

junit_case case_of(const audited_run &run, const kind_without_indicator &k) {
  const char *name = audit_kind_name(k.kind);
  junit_case c = {name};
  const uint64_t total = run.facts.report.findings[k.kind];
  tell_group(c, run.data.group(name), total, audit_kind_severity(k.kind) == AUDIT_FAIL, k.meaning);
  if (const std::string why = why_unjudged(run, k.kind); total == 0 && !why.empty())
    skip(c, why.c_str());
  return c;
}

std::string why_unread(const audited_run &run) {
  if (run.is_incomplete)
    return "memory was refused during the run";
  if (is_unreadable(run.facts.result.end))
    return run.facts.result.end == run_end::cannot_open ? "the file cannot be opened"
                                                        : "the file cannot be read to its end";
  return run.facts.report.verdict == AUDIT_INCOMPLETE ? verdict_line(run.facts) : "";
}

junit_case capture_case(const audited_run &run) {
  junit_case c = {"capture"};
  c.message = why_unread(run);
  if (!c.message.empty()) {
    c.state = junit_state::error;
  } else if (run.facts.report.verdict == AUDIT_NOTHING_CHECKED) {
    c.state = junit_state::failed;
    c.message = verdict_line(run.facts);
  }
  return c;
}

void fill(junit_suite &suite, const audited_run &run) {
  const audit_facts &facts = run.facts;
  suite.properties = {
      {"generator", run.request.generator},
      {"file", run.request.file},
      {"profile", audit_profile_name(facts.settings.profile)},
      {"packets", std::to_string(facts.report.packets)},
      {"duration", clock_time(facts.report.duration, 1, "no clock")},
      {"verdict", verdict_line(facts)},
      {"allowed", std::to_string(facts.allowed.all)},
  };
  suite.cases.push_back(capture_case(run));
  if (!run.audit)
    return;
  for_each_record(run.audit, audit_get_indicator, [&](size_t, const audit_indicator &i) {
    suite.cases.push_back(case_of(run, i));
  });
  for (const kind_without_indicator &k : kinds_without_indicator)
    suite.cases.push_back(case_of(run, k));
}

} // namespace

void junit_of_audit(output_file &out, const audited_run &run) {
  junit_file(out, {"korva.audit", run.request.source},
             [&](junit_suite &suite) { fill(suite, run); });
}
