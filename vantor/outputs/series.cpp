#include "outputs/series.h"

#include <algorithm>

void merge_bucket(bucket &into, const bucket &from) {
  if (from.count == 0)
    return;
  into.min = into.count == 0 ? from.min : std::min(into.min, from.min);
  into.max = into.count == 0 ? from.max : std::max(into.max, from.max);
  into.count += from.count;
  into.total += from.total;
}

void measure_sum::add(int64_t ms) {
  min = count == 0 ? ms : std::min(min, ms);
  max = count == 0 ? ms : std::max(max, ms);
  ++count;
  total += ms;
}
