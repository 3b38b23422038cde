#include "outputs/audit_facts.h"

#include <algorithm>
#include <string_view>

void allowed_counts::add(const audit_finding &f) {
  ++all;
  fails += f.severity == AUDIT_FAIL;
  ++by_kind[f.kind];
  if (!f.indicator)
    return;
  const auto place = std::ranges::find_if(
      indicators, [&](auto &i) { return !i.id || std::string_view(i.id) == f.indicator; });
  if (place == indicators.end())
    return;
  place->id = f.indicator;
  ++place->count;
}

uint64_t allowed_counts::of(const audit_indicator &indicator) const {
  for (const auto &[id, count] : indicators)
    if (id && std::string_view(id) == indicator.id)
      return count;
  return 0;
}

void leave_out_allowed(audit_facts &facts) {
  facts.report.fails -= facts.allowed.fails;
  if (facts.report.verdict == AUDIT_FAILED && facts.report.fails == 0)
    facts.report.verdict = AUDIT_PASS;
}
