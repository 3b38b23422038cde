// What a run with --audit knows at its end.
#pragma once

#include <array>

#include "audit/audit.h"
#include "outputs/baseline.h"
#include "outputs/run_info.h"

// Findings that --baseline allows.
struct allowed_counts {
  uint64_t all = 0, fails = 0; // these of severity fail
  std::array<uint64_t, AUDIT_KINDS> by_kind = {};

  void add(const audit_finding &finding);
  uint64_t of(const audit_indicator &indicator) const;

private:
  struct of_indicator {
    const char *id = nullptr;
    uint64_t count = 0;
  };
  std::array<of_indicator, 24> indicators = {}; // more than there are
};

struct audit_facts {
  audit_config settings = {};
  size_t packet_size = 0;         // bytes, 0: none was found
  uint64_t size = 0;              // of the file, bytes; 0: not known
  uint64_t leading = 0, tail = 0; // bytes before the first and behind the last record
  audit_report report = {};       // verdict and counts, without the fails that are allowed
  allowed_counts allowed;
  size_t indicators = 0, not_measurable = 0;
  run_result result;
};

// Takes what is allowed out of what fails.
void leave_out_allowed(audit_facts &facts);
