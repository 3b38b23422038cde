// --exit-alerts: an exit status of its own for runs with alerts.
#pragma once

#include "tsanalyze/readout.h"

class exit_alerts {
public:
  // Chooses the kinds that count: names as in the logs and NOT-CHECKED, with commas between; null:
  // all. Returns 0, or 22 (EINVAL) after a report on standard error.
  int choose(const char *kinds);

  bool is_on() const { return chosen != 0; }
  void alert(const tsan_alert &a) { raised |= 1u << a.kind; }

  // No packet was analyzed.
  void nothing_checked() { raised |= NOT_CHECKED; }

  // The status of a run that would end with `status`: a file that could not be opened, or not
  // be read to its end, counts like an alert of every kind.
  int status(int status, bool unreadable) const;

private:
  enum : unsigned { NOT_CHECKED = 1u << TSAN_ALERT_KINDS, ALL_KINDS = 2 * NOT_CHECKED - 1 };

  unsigned chosen = 0, raised = 0; // bit per tsan_alert_kind
};
