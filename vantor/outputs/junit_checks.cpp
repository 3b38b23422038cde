#include "outputs/junit_checks.h"

#include <algorithm>
#include <cstring>

#include "outputs/alert_words.h"
#include "outputs/audit_words.h"
#include "outputs/checks.h"
#include "outputs/junit.h"

namespace {

// The alerts of a kind; those that end a run are told by the first case.
junit_case case_of(const checked_run &run, tsan_alert_kind kind) {
  const check_report check = report_check(run, kind);
  junit_case c = {tsan_alert_name(kind)};
  for (const listed_alert &listed : run.data.listed)
    if (listed.alert.kind == kind)
      add_place(c, {listed.time, has_pid(kind) ? static_cast<int32_t>(listed.alert.pid) : -1,
                    listed.alert.pkt_idx, alert_detail(listed.alert).text, listed.allowed, true});
  const uint64_t allowed = run.data.allowed[kind], alerts = run.data.alerts[kind];
  if (alerts != allowed) {
    fail_case(c, alerts - allowed, "alert", alert_meaning(kind));
  } else if (alerts == 0 && check.state != check_state::on) {
    c.state = junit_state::skipped;
    c.message = check.state == check_state::off ? "the check is off" : check.reason.text;
  }
  return c;
}

// Why the capture as a whole fails; empty: it does not.
std::string why_failed(const checked_run &run) {
  for (const tsan_alert_kind kind : {TSAN_OUT_OF_SYNC, TSAN_IDLE})
    if (run.data.alerts[kind] != 0)
      return std::string(tsan_alert_name(kind)) + ", " + alert_meaning(kind);
  const reason_text why = why_unchecked(run);
  return why.is_empty() ? "" : std::string("nothing was checked: ") + why.text;
}

// Why not all of it was looked at.
std::string why_error(const checked_run &run) {
  const run_result &result = run.result;
  if (is_unreadable(result.end))
    return std::string(result.end == run_end::cannot_open ? "cannot be opened: " : "read error: ") +
           strerror(result.file_errno);
  if (run.is_incomplete)
    return "memory was refused during the run";
  if (result.end == run_end::signal || result.end == run_end::failed)
    return std::string("the run was not completed: ") + run_end_name(result.end);
  return "";
}

junit_case capture_case(const checked_run &run) {
  junit_case c = {"capture"};
  if (const std::string why = why_error(run); !why.empty()) {
    c.state = junit_state::error;
    c.message = why;
  } else if (const std::string failed = why_failed(run); !failed.empty()) {
    c.state = junit_state::failed;
    c.message = failed;
  }
  for (size_t i = 0; i < stats_of(run.ctx).programs; ++i)
    if (const reason_text why = why_unchecked(run, i); !why.is_empty())
      c.output += text("program %zu was not checked: ", i) + why.text + "\n";
  return c;
}

void fill(junit_suite &suite, const checked_run &run) {
  suite.properties = {
      {"generator", run.request.generator},
      {"file", run.request.file},
      {"packets", std::to_string(stats_of(run.ctx).processed)},
      {"duration", clock_time(run.duration, 1, "no clock")},
      {"allowed", std::to_string(run.data.total_allowed())},
  };
  suite.cases.push_back(capture_case(run));
  for (const tsan_alert_kind kind : checked_kinds)
    suite.cases.push_back(case_of(run, kind));
}

} // namespace

void junit_of_checks(output_file &out, const checked_run &run) {
  junit_file(out, {"korva.checks", run.request.source},
             [&](junit_suite &suite) { fill(suite, run); });
}
