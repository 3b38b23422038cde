#include "outputs/histogram.h"

uint32_t histogram::bin_begin(size_t bin) {
  if (bin < EXACT)
    return static_cast<uint32_t>(bin);
  const size_t shift = (bin >> SUB_BITS) - 1;
  return static_cast<uint32_t>((bin - (shift << SUB_BITS)) << shift);
}

uint32_t histogram::percentile(double percent) const {
  const double wanted = static_cast<double>(total) * percent / 100;
  uint64_t seen = 0;
  for (size_t bin = 0; bin < counts.size(); ++bin) {
    seen += counts[bin];
    if (seen != 0 && static_cast<double>(seen) >= wanted)
      return bin_begin(bin + 1) - 1;
  }
  return 0;
}

std::vector<uint64_t> histogram::steps(uint32_t step, size_t n) const {
  std::vector<uint64_t> out(n);
  for (size_t bin = 0; bin < counts.size(); ++bin)
    if (const size_t i = bin_begin(bin) / step; i < n)
      out[i] += counts[bin];
  return out;
}
