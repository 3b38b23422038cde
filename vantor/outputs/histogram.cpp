#include "outputs/histogram.h"

int64_t histogram::bin_begin(size_t bin) {
  if (bin < EXACT)
    return static_cast<int64_t>(bin);
  const size_t shift = (bin >> SUB_BITS) - 1;
  return static_cast<int64_t>((bin - (shift << SUB_BITS)) << shift);
}

int64_t histogram::percentile(double percent) const {
  const double wanted = static_cast<double>(total) * percent / 100;
  uint64_t seen = 0;
  const auto is_reached = [&](uint32_t count) {
    seen += count;
    return count != 0 && static_cast<double>(seen) >= wanted;
  };
  for (size_t bin = below.size(); bin-- > 0;)
    if (is_reached(below[bin]))
      return -bin_begin(bin);
  for (size_t bin = 0; bin < above.size(); ++bin)
    if (is_reached(above[bin]))
      return bin_begin(bin + 1) - 1;
  return 0;
}

std::vector<uint64_t> histogram::steps(int64_t first, uint32_t step, size_t n) const {
  std::vector<uint64_t> out(n);
  const auto take = [&](int64_t value, uint32_t count) {
    const auto i = static_cast<size_t>((value - first) / step);
    if (value >= first && i < n)
      out[i] += count;
  };
  for (size_t bin = 0; bin < below.size(); ++bin)
    take(1 - bin_begin(bin + 1), below[bin]);
  for (size_t bin = 0; bin < above.size(); ++bin)
    take(bin_begin(bin), above[bin]);
  return out;
}
