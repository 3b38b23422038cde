#include "audit/clocks.h"

clock_record *clock_record_of(audit_ctx &a, uint16_t pid) {
  clock_record *&clock = a.records[pid].clock;
  if (!clock && a.clocks.size() < MAX_CLOCKS) {
    a.clocks.reserve(a.clocks.size() + 1);
    clock = new clock_record;
    clock->pid = pid;
    a.clocks.push_back(clock);
  }
  return clock;
}
