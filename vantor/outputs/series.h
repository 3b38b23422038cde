// A measure over stream time, and marks on it, in bounded memory.
//
// Time is cut into at most MAX_BUCKETS buckets of equal width. When the stream outgrows them,
// neighbours are merged and the width doubles.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "outputs/histogram.h"

enum : size_t { MAX_BUCKETS = 512 };

struct bucket {
  uint32_t count;
  int32_t min, max; // ms
  int64_t total;    // ms
};

// The place of the first mark in its stretch of time, and 1; 0: none.
using mark = uint64_t;

// Adds what `from` holds to `into`, which lies before it.
void merge_bucket(bucket &into, const bucket &from);
inline void merge_bucket(mark &into, mark from) {
  if (into == 0)
    into = from;
}

// Bucket i takes in bucket 2 * i and the one behind it.
template <typename Bucket> void merge_neighbours(std::vector<Bucket> &buckets) {
  const size_t n = (buckets.size() + 1) / 2;
  for (size_t i = 0; i < n; ++i) {
    Bucket merged = buckets[2 * i];
    if (2 * i + 1 < buckets.size())
      merge_bucket(merged, buckets[2 * i + 1]);
    buckets[i] = merged;
  }
  buckets.resize(n);
}

template <typename Bucket>
Bucket &bucket_at(std::vector<Bucket> &buckets, uint64_t at, uint64_t width) {
  const auto i = static_cast<size_t>(at / width);
  if (i >= buckets.size())
    buckets.resize(i + 1);
  return buckets[i];
}

// Least, greatest and sum.
struct measure_sum {
  uint64_t count = 0;
  int64_t total = 0, min = 0, max = 0; // ms
  void add(int64_t ms);
  double average() const { return static_cast<double>(total) / static_cast<double>(count); }
};

// A time in whole ms, rounded.
inline uint64_t whole_ms(double seconds) {
  return static_cast<uint64_t>(seconds * 2000 + 1) / 2;
}

// Not empty.
struct series {
  measure_sum sum;
  histogram values; // ms
  std::vector<bucket> buckets;
};
