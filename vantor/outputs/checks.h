// What each check of a run looked at; and when there was nothing, why.
#pragma once

#include <string_view>

#include "outputs/checked_run.h"

// In the field's words: "no PAT"; empty: there is no reason.
struct reason_text {
  char text[192] = {};
  bool is_empty() const { return text[0] == '\0'; }
  bool is_question() const { return std::string_view(text).ends_with('?'); }
};

// Why no packet of the run, or of a program, was analyzed; empty when one was.
reason_text why_unchecked(const checked_run &run);
reason_text why_unchecked(const checked_run &run, size_t program);

// Programs of which nothing was analyzed, without the one that stands for the NIT.
size_t unchecked_programs(const checked_run &run);

enum class check_state { on, off, not_checked };

// "on", "off", "not-checked"
const char *check_state_name(check_state state);

struct check_report {
  tsan_alert_kind kind;
  check_state state;
  uint64_t looked_at;
  const char *unit; // of that: "packets" ...
  size_t limit_ms;  // 0: the check has none
  reason_text reason;
};

// The kinds of alerts that stand for checks on a file.
inline constexpr tsan_alert_kind checked_kinds[] = {
    TSAN_CC_BRK,   TSAN_CC_RST,   TSAN_PCR_DELTA, TSAN_AV_DELTA0, TSAN_AV_DELTA_PLUS,
    TSAN_PCR_FREQ, TSAN_PAT_DIFF, TSAN_PMT_DIFF,  TSAN_PID_NDAT,
};

check_report report_check(const checked_run &run, tsan_alert_kind kind);
