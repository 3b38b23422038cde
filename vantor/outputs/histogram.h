// How often each value came, in bounded memory: exact below 256, from there on to 1 part in 128.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <vector>

class histogram {
public:
  void add(uint32_t value) {
    const size_t bin = bin_of(value);
    if (bin >= counts.size())
      counts.resize(bin + 1);
    ++counts[bin];
    ++total;
  }

  // The value below or at which `percent` of all lie; of a bin, its greatest value.
  uint32_t percentile(double percent) const;

  // The counts of [0, step), [step, 2 * step) ... for a step that is a power of 2; a bin that
  // reaches over a border counts where it begins.
  std::vector<uint64_t> steps(uint32_t step, size_t n) const;

  uint64_t count() const { return total; }

private:
  enum : uint32_t { SUB_BITS = 7, EXACT = 2u << SUB_BITS };

  static size_t bin_of(uint32_t value) {
    if (value < EXACT)
      return value;
    const auto shift = static_cast<uint32_t>(std::bit_width(value)) - SUB_BITS - 1;
    return (size_t{shift} << SUB_BITS) + (value >> shift);
  }
  static uint32_t bin_begin(size_t bin);

  std::vector<uint32_t> counts;
  uint64_t total = 0;
};
