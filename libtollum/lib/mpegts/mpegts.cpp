#include "mpegts/mpegts.h"

#include "log/statement.h"

LOG_MODULE(7);

uint64_t calc_pcr_delta(uint64_t first, uint64_t last, bool quiet) {
  if (const uint64_t wrapped = last + PCR_WRAP - first; wrapped < PCR_MAX_GAP)
    return wrapped;
  const uint64_t delta = last - first;
  if (first == 0 || first <= last)
    return delta;
  if (!quiet)
    LOG(g_log, WARN_level, "%s: PCR last=%lu < first=%lu diff=%lu\n", __func__, last, first, delta);
  return 0;
}

uint32_t pcr_delta_ms(uint64_t first, uint64_t last) {
  return static_cast<uint32_t>(calc_pcr_delta(first, last, false) / 90);
}
