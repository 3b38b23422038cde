// What a run with --audit knows at its end.
#pragma once

#include "audit/audit.h"
#include "outputs/run_info.h"

struct audit_facts {
  audit_config settings = {};
  size_t packet_size = 0;         // bytes, 0: none was found
  uint64_t size = 0;              // of the file, bytes; 0: not known
  uint64_t leading = 0, tail = 0; // bytes before the first and behind the last record
  audit_report report = {};       // verdict and counts
  size_t indicators = 0, not_measurable = 0;
  run_result result;
};
