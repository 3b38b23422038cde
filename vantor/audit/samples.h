// Measured values, for who wants each of them.
#pragma once

#include "audit/ctx.h"

inline void hand_sample(const audit_ctx &a, audit_sample_kind kind, uint16_t pid, double time,
                        double value) {
  if (!a.cfg.on_sample)
    return;
  const audit_sample sample = {sizeof sample, kind, pid, time, value};
  a.cfg.on_sample(a.cfg.opaque, &sample);
}
