// How often each value came, in bounded memory: exact below 256 in size, from there on to 1 part in
// 128.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

class histogram {
public:
  void add(int32_t value) {
    const auto size = static_cast<uint32_t>(std::abs(int64_t{value}));
    std::vector<uint32_t> &counts = value < 0 ? below : above;
    const size_t bin = bin_of(size);
    if (bin >= counts.size())
      counts.resize(bin + 1);
    ++counts[bin];
    ++total;
  }

  // The value below or at which `percent` of all lie; of a bin, its greatest value.
  int64_t percentile(double percent) const;

  // The counts of [first, first + step), and so on, for a step that is a power of 2 and a multiple
  // of it to begin with; a bin that reaches over a border counts where it begins.
  std::vector<uint64_t> steps(int64_t first, uint32_t step, size_t n) const;

  uint64_t count() const { return total; }

private:
  enum : uint32_t { SUB_BITS = 7, EXACT = 2u << SUB_BITS };

  static size_t bin_of(uint32_t size) {
    if (size < EXACT)
      return size;
    const auto shift = static_cast<uint32_t>(std::bit_width(size)) - SUB_BITS - 1;
    return (size_t{shift} << SUB_BITS) + (size >> shift);
  }
  static int64_t bin_begin(size_t bin);

  std::vector<uint32_t> above, below; // by size: of 0 and more, of less
  uint64_t total = 0;
};
