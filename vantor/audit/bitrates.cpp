#include "audit/bitrates.h"

#include <algorithm>

#include "audit/samples.h"

namespace {

constexpr double BITS_PER_PACKET = TS_PKT_SIZE * 8;

// Of a stream time, which is never negative.
int64_t whole_seconds(double t) {
  return static_cast<int64_t>(t);
}

void begin_second(audit_ctx &a) {
  a.second = a.clock.now.t;
  for (const uint16_t pid : a.seen_pids)
    a.records[pid].packets_before = a.pids[pid].packets;
}

} // namespace

void measure_bitrates(audit_ctx &a) {
  const double t = a.clock.now.t;
  if (a.clock.knots == 1)
    return begin_second(a);
  if (whole_seconds(t) <= whole_seconds(a.second))
    return;
  for (const uint16_t pid : a.seen_pids) {
    pid_record &rec = a.records[pid];
    const auto packets = static_cast<double>(a.pids[pid].packets - rec.packets_before);
    const double bitrate = packets * BITS_PER_PACKET / (t - a.second);
    rec.bitrate_min = a.has_bitrates ? std::min(rec.bitrate_min, bitrate) : bitrate;
    rec.bitrate_max = std::max(rec.bitrate_max, bitrate);
    hand_sample(a, AUDIT_BITRATE, pid, t, bitrate);
  }
  a.has_bitrates = true;
  begin_second(a);
}
