// What the outputs collect during a run, in bounded memory: alert counts, when alerts came, and the
// measured distances over stream time.
//
// Stream time is the sum of a program's PCR steps, in ms. A step backwards and one of more than a
// minute is a jump of the clock, not time, and adds nothing. Programs whose PCR comes later begin
// where the others stand. A stream without any PCR is placed by packets instead.
//
// Time is cut into at most MAX_BUCKETS buckets of equal width. When the stream outgrows them,
// neighbours are merged and the width doubles.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <numeric>
#include <string>
#include <tuple>
#include <vector>

#include "outputs/histogram.h"
#include "tsanalyze/readout.h"

enum : size_t {
  MAX_BUCKETS = 1024,
  FIRST_WIDTH = 20, // ms, or packets
  MAX_SERIES = 192, // 40 KiB each
  MAX_ROWS = 512,   // 4 KiB each
  MAX_LISTED = 40,  // alerts of each kind told one by one
  MAX_PROGRAMS = 32,
};

struct bucket {
  uint32_t count, min, max; // min and max in ms
  uint64_t total;           // ms
};

// Adds what `from` holds to `into`.
void merge_bucket(bucket &into, const bucket &from);
inline void merge_bucket(uint32_t &into, uint32_t from) {
  into += from;
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

// Minimum, maximum and sum of a measure of a program.
struct measure_sum {
  uint64_t count = 0, total = 0, min = 0, max = 0; // ms
  void add(uint64_t ms);
};

// One measure on one stream.
struct series {
  int program;
  uint32_t pid;
  tsan_sample_kind kind;
  measure_sum sum;
  histogram values; // ms
  std::vector<bucket> buckets;
};

// The alerts of one kind on one PID.
struct alert_row {
  int program;
  uint32_t pid;
  tsan_alert_kind kind;
  uint64_t count = 0;
  std::vector<uint32_t> buckets; // alerts in each
};

struct listed_alert {
  uint64_t at; // stream time
  tsan_alert alert;
  std::string ptag;
};

class report_data {
public:
  // `clocked`: PCRs are delivered as samples (measure_all of an analyzer that is on); else
  // everything is placed by packets.
  explicit report_data(bool clocked = true) : has_clock(clocked) {}

  void alert(const tsan_alert &a);
  void sample(const tsan_sample &s);

  // Brings the end to the last packet of a stream that is placed by packets.
  void finish(uint64_t packets);

  uint64_t total_alerts() const {
    return std::accumulate(alerts.begin(), alerts.end(), uint64_t{0});
  }
  bool in_packets() const { return !clock_seen; }
  uint64_t bucket_width() const { return width; } // ms, or packets
  uint64_t duration() const { return end; }       // the same

  std::array<uint64_t, TSAN_ALERT_KINDS> alerts = {};
  std::array<std::array<measure_sum, TSAN_SAMPLE_KINDS>, MAX_PROGRAMS> sums = {};
  std::vector<series> measured;
  std::vector<alert_row> rows; // by program, PID and kind
  std::vector<listed_alert> listed;
  uint64_t unplotted = 0; // samples and alerts of what came after the last series or row

private:
  struct pcr_clock {
    bool is_started = false;
    uint64_t last_pcr = 0, ticks = 0; // 90 kHz
  };

  uint64_t place(int program, uint64_t last_pcr, uint64_t pkt_idx);
  void begin_clock();
  void make_room(uint64_t at);
  void halve();
  series *find_series(const tsan_sample &s);
  alert_row *find_row(const tsan_alert &a);

  using key = std::tuple<int, uint32_t, int>; // program, PID, kind

  bool has_clock;
  bool clock_seen = false;
  uint64_t now = 0, end = 0, width = FIRST_WIDTH;
  std::array<pcr_clock, MAX_PROGRAMS> clocks;
  std::map<key, size_t> series_at, row_at;
};
