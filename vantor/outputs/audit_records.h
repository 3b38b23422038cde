// The records of an audit, one after the other.
#pragma once

#include "audit/audit.h"

// Hands each record of one sort to `take`, with its index. `get` is the one that the audit has for
// them, as audit_get_pid.
template <typename Record, typename Take>
void for_each_record(audit_t audit, int (*get)(audit_t, size_t, Record *), Take take) {
  Record record = {};
  record.size = sizeof record;
  for (size_t i = 0; get(audit, i, &record) == 0; ++i)
    take(i, record);
}
