#include "misc/aval.h"

#include <algorithm>

void inc_aval(aggr_val *av, uint64_t sample) {
  if (av->g_count == 0) {
    av->min = av->max = av->g_min = av->g_max = sample;
  } else if (av->count != 0) {
    av->min = std::min(av->min, sample);
    av->max = std::max(av->max, sample);
    av->g_min = std::min(av->g_min, av->min);
    av->g_max = std::max(av->g_max, av->max);
  } else {
    av->min = av->max = sample;
  }
  av->count += 1;
  av->total += sample;
  av->g_count += 1;
  av->g_total += sample;
}

void reset_aval(aggr_val *av) {
  av->count = av->total = av->min = av->max = 0;
}

static double average(uint64_t total, uint64_t count) {
  return static_cast<double>(total) / static_cast<double>(count);
}

double aval_local_avg(const aggr_val *av) {
  return average(av->total, av->count);
}

double aval_global_avg(const aggr_val *av) {
  return average(av->g_total, av->g_count);
}
