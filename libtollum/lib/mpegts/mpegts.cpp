#include "mpegts/mpegts.h"

#include <cstdlib>

#include "log/statement.h"

LOG_MODULE(7);

uint64_t calc_pcr_delta(uint64_t first, uint64_t last, unsigned flags) {
  if (const uint64_t wrapped = last + PCR_WRAP - first; wrapped < PCR_MAX_GAP)
    return wrapped;
  const uint64_t delta = last - first;
  if (first == 0)
    return delta;
  if (first > last) {
    if ((flags & PCR_QUIET) == 0)
      LOG(g_log, WARN_level, "%s: PCR last=%lu < first=%lu diff=%lu\n", __func__, last, first,
          delta);
    if ((flags & PCR_ABORT_BACKWARDS) != 0)
      abort();
    return 0;
  }
  if ((flags & PCR_REPORT_GAP) != 0 && delta > PCR_MAX_GAP)
    LOG(g_log, WARN_level, "%s: PCR gap=%lu exceeds max=%u; last=%lu, first=%lu\n", __func__, delta,
        static_cast<unsigned>(PCR_MAX_GAP), last, first);
  return delta;
}

uint64_t ts_pcr_delta(uint64_t first, uint64_t last) {
  return calc_pcr_delta(first, last, 0);
}

uint32_t pcr_delta_ms(uint64_t first, uint64_t last) {
  return static_cast<uint32_t>(ts_pcr_delta(first, last) / 90);
}
