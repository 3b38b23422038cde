// Where findings and samples leave for the context's read-out.
#pragma once

#include "misc/aval.h"
#include "tsanalyze/ctx.h"
#include "tsanalyze/ptag.h"
#include "tsanalyze/readout.h"

// A record of `kind` about the packet at hand; `pg` is the program it belongs to, or null.
tsan_alert new_alert(tsan_ctx *tc, tsan_alert_kind kind, const program_info *pg, uint32_t pid);

// Delivers a finding, when someone listens; `fill` sets the fields of its kind.
template <typename Fill>
void read_out(tsan_ctx *tc, tsan_alert_kind kind, const program_info *pg, uint32_t pid, Fill fill) {
  if (!tc->readout.on_alert) [[likely]]
    return;
  tsan_alert alert = new_alert(tc, kind, pg, pid);
  fill(alert);
  tc->readout.on_alert(tc->readout.opaque, &alert);
}

// What was measured, on which stream, and between which values of the 90 kHz clock.
struct measured {
  tsan_sample_kind kind;
  uint32_t pid;
  bool is_pts;
  uint64_t pcr = 0, stamp = 0, ref_stamp = 0;
};

// Delivers a sample of the current program, when someone listens.
void read_out_sample(tsan_ctx *tc, const measured &what, uint64_t ms, bool is_checked);

// Takes a sample into a running average of the current program, and delivers it.
inline void take_sample(tsan_ctx *tc, aggr_val *av, const measured &what, uint64_t ms,
                        bool is_checked = true) {
  inc_aval(av, ms);
  if (tc->readout.on_sample) [[unlikely]]
    read_out_sample(tc, what, ms, is_checked);
}

// True when what has no threshold is to be measured all the same. Its averages are for the
// read-out: nothing prints those of a check that is off.
inline bool measures_all(const tsan_ctx *tc) {
  return tc->readout.measure_all && tc->cfg.is_enabled;
}
