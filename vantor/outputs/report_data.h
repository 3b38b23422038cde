// What the page and the closing JSON record collect during a run, in bounded memory: alert counts,
// when alerts came, and the measured distances over stream time. A stream without a clock is placed
// by packets instead.
#pragma once

#include <array>
#include <cmath>
#include <cstdint>
#include <map>
#include <numeric>
#include <tuple>
#include <vector>

#include "outputs/baseline.h"
#include "outputs/series.h"
#include "tsanalyze/readout.h"

enum : size_t {
  MAX_SERIES = 96, // 30 KiB each
  MAX_ROWS = 100,  // 4 KiB each
  MAX_LISTED = 40, // alerts of each kind told one by one, and as many that are allowed
  MAX_PROGRAMS = 32,
};

// What is drawn over time. PTS and DTS go apart, and distances have a sign.
enum measure { PCR_INTERVAL, PTS_TO_PCR, DTS_TO_PCR, PTS_SKEW, DTS_SKEW, MEASURES };

measure measure_of(const tsan_sample &s);

// The sample that the analyzer's limit for it is held against.
tsan_sample_kind sample_kind_of(measure what);

// One measure on one stream.
struct measured_series : series {
  int program;
  uint32_t pid;
  measure what;
};

// The alerts of one kind on one PID.
struct alert_row {
  int program;
  uint32_t pid;
  tsan_alert_kind kind;
  uint64_t count = 0;
  std::vector<mark> marks;
};

struct listed_alert {
  uint64_t at; // as on the axis
  tsan_alert alert;
  double time;                    // s of stream time, or NAN
  const allowed_finding *allowed; // by this entry of the baseline, or null
};

class report_data {
public:
  // Count, in memory that is there.
  void count(const tsan_alert &a, bool is_allowed) {
    ++alerts[a.kind];
    allowed[a.kind] += is_allowed;
  }
  void count(const tsan_sample &s);

  // Place what was counted in time; they throw when memory is refused. `time`: stream time of the
  // packet at hand, s; NAN as long as there is none.
  void place(const tsan_alert &a, double time, const allowed_finding *entry);
  void place(const tsan_sample &s, double time);

  // Brings the end to the last packet.
  void finish(uint64_t packets, double time);

  uint64_t total_alerts() const {
    return std::accumulate(alerts.begin(), alerts.end(), uint64_t{0});
  }
  uint64_t total_allowed() const {
    return std::accumulate(allowed.begin(), allowed.end(), uint64_t{0});
  }
  bool in_packets() const { return !has_clock; }
  uint64_t bucket_width() const { return width; } // ms, or packets
  uint64_t duration() const { return end; }       // the same

  std::array<uint64_t, TSAN_ALERT_KINDS> alerts = {}, allowed = {};                  // of these
  std::array<std::array<measure_sum, TSAN_SAMPLE_KINDS>, MAX_PROGRAMS> checked = {}; // as checked
  std::array<std::array<measure_sum, MEASURES>, MAX_PROGRAMS> sums = {};
  std::vector<measured_series> measured;
  std::vector<alert_row> rows;
  std::vector<listed_alert> listed;
  // Of PIDs that came when all places were taken: counted only.
  uint64_t unplaced_samples = 0, unplaced_alerts = 0;

private:
  uint64_t place_of(double time, uint64_t packet);
  void begin_clock();
  void make_room(uint64_t at);
  measured_series *find_series(const tsan_sample &s);
  alert_row *find_row(const tsan_alert &a);

  using key = std::tuple<int, uint32_t, int>; // program, PID, kind

  bool has_clock = false;
  uint64_t end = 0, width = 1;
  std::map<key, size_t> series_at, row_at;
};
