#include "outputs/audit_fields.h"

namespace {

void tell_loss(const audit_finding &f, field_sink &to) {
  to.count("lost", f.lost);
  to.number("last_cc", f.last_cc);
  to.number("cc", f.cc);
  to.word("cause", f.after_sync ? "sync" : nullptr);
}

void tell_moved(const audit_finding &f, field_sink &to) {
  to.count("moved", f.moved);
  to.number("last_cc", f.last_cc);
  to.number("cc", f.cc);
}

void tell_pat_change(const audit_change &change, field_sink &to) {
  to.list("added", change.added);
  to.list("removed", change.removed);
}

void tell_pmt_change(const audit_change &change, field_sink &to) {
  tell_pat_change(change, to);
  to.list("retyped", change.retyped);
  if (change.pcr_pid_new >= 0) {
    const uint16_t pids[] = {static_cast<uint16_t>(change.pcr_pid_old),
                             static_cast<uint16_t>(change.pcr_pid_new)};
    to.list("pcr_pid", {pids, 2});
  }
  to.list("descriptors", change.descriptors);
}

void tell_version(const audit_finding &f, field_sink &to) {
  to.number("table_id", f.table_id);
  if (f.table_id == 0)
    tell_pat_change(*f.change, to);
  else
    tell_pmt_change(*f.change, to);
}

void tell_table_gap(const audit_finding &f, field_sink &to) {
  to.word("table", audit_table_name(f.table));
  to.measure("ms", f.ms);
  to.flag("to_end", f.to_end);
}

void tell_stream_gap(const audit_finding &f, field_sink &to) {
  to.measure("ms", f.ms);
  to.flag("to_end", f.to_end);
  to.flag("never", f.never);
}

// Only a gap at the end says so.
void tell_pcr_gap(const audit_finding &f, field_sink &to) {
  if (f.to_end)
    tell_stream_gap(f, to);
  else
    to.measure("ms", f.ms);
}

} // namespace

void tell_fields(const audit_finding &f, field_sink &to) {
  switch (f.kind) {
  case AUDIT_SYNC_LOSS:
    return to.count("lost_bytes", f.lost_bytes);
  case AUDIT_CC_LOSS:
    return tell_loss(f, to);
  case AUDIT_CC_DUP:
    return to.number("cc", f.cc);
  case AUDIT_CC_ORDER:
    return to.count("displaced", f.displaced);
  case AUDIT_CC_AF:
    return tell_moved(f, to);
  case AUDIT_PSI_CRC:
  case AUDIT_PSI_SYNTAX:
  case AUDIT_PSI_TABLE:
    return to.number("table_id", f.table_id);
  case AUDIT_PSI_VERSION:
    return tell_version(f, to);
  case AUDIT_PSI_GAP:
    return tell_table_gap(f, to);
  case AUDIT_PCR_GAP:
    return tell_pcr_gap(f, to);
  case AUDIT_PCR_JUMP:
    return to.measure("jump_ms", f.jump_ms);
  case AUDIT_PCR_ACCURACY:
    return to.measure("ns", f.ns);
  case AUDIT_PTS_GAP:
  case AUDIT_STAMP_LATE:
  case AUDIT_STAMP_DELAY:
  case AUDIT_STAMP_BASE:
  case AUDIT_STAMP_ORDER:
    return to.measure("ms", f.ms);
  case AUDIT_STAMP_BACK:
  case AUDIT_STAMP_JUMP:
    return to.measure("step_ms", f.step_ms);
  case AUDIT_PID_GAP:
    return tell_stream_gap(f, to);
  case AUDIT_RATE_LOSS:
    to.count("lost", f.lost);
    return to.count("counted", f.counted);
  case AUDIT_PID_UNREFERENCED:
    return to.count("packets", f.packets);
  case AUDIT_LEADING:
    return to.count("bytes", f.bytes);
  case AUDIT_PAT_CHANGE:
    return tell_pat_change(*f.change, to);
  case AUDIT_PMT_CHANGE:
    return tell_pmt_change(*f.change, to);
  default:
    return;
  }
}
