// A run with --audit, as its page sees it at the end.
#pragma once

#include <cmath>

#include "outputs/audit_facts.h"
#include "outputs/audit_page_data.h"
#include "outputs/report_plot.h"

struct audited_run {
  const run_request &request;
  const audit_facts &facts;
  audit_t audit; // null: no packet was judged
  const audit_page_data &data;
  bool is_incomplete; // memory was refused for what the page collects
};

inline time_axis time_axis_of(const audited_run &run) {
  const bool in_packets = std::isnan(run.facts.report.duration);
  const audit_page_data::axis &axis = in_packets ? run.data.packets : run.data.time;
  return {in_packets, axis.width, std::max<uint64_t>(axis.length, 1)};
}
