// Running aggregate of a measured value, kept twice: since the last reset ("local") and since
// creation ("global").
#pragma once

#include <cstdint>

struct aggr_val {
  uint64_t count, g_count; // samples
  uint64_t total, g_total; // their sum
  uint64_t min, g_min;
  uint64_t max, g_max;
};

// Adds one sample. The first sample after a reset reaches the global extremes only with the sample
// that follows it, so a local period of a single sample never does.
void inc_aval(aggr_val *av, uint64_t sample);

// Starts a new local period.
void reset_aval(aggr_val *av);

// Averages; NaN while there is no sample.
double aval_local_avg(const aggr_val *av);
double aval_global_avg(const aggr_val *av);
