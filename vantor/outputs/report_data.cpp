#include "outputs/report_data.h"

#include <algorithm>

#include "audit/clock.h"

namespace {

constexpr int64_t TICKS_PER_MS = 90;

// Everything before the clock began came at time 0.
template <typename Bucket> void merge_all(std::vector<Bucket> &buckets) {
  for (size_t i = 1; i < buckets.size(); ++i)
    merge_bucket(buckets[0], buckets[i]);
  buckets.resize(std::min<size_t>(buckets.size(), 1));
}

int64_t distance_ms(uint64_t to, uint64_t from) {
  return wrapped_step(static_cast<int64_t>(to), static_cast<int64_t>(from), STAMP_MODULO) /
         TICKS_PER_MS;
}

int32_t measured_ms(const tsan_sample &s) {
  const int64_t ms = s.kind == TSAN_PCR_INTERVAL   ? static_cast<int64_t>(s.ms)
                     : s.kind == TSAN_STAMP_TO_PCR ? distance_ms(s.stamp, s.pcr)
                                                   : distance_ms(s.stamp, s.ref_stamp);
  return static_cast<int32_t>(std::min<int64_t>(ms, INT32_MAX));
}

} // namespace

measure measure_of(const tsan_sample &s) {
  if (s.kind == TSAN_PCR_INTERVAL)
    return PCR_INTERVAL;
  if (s.kind == TSAN_STAMP_TO_PCR)
    return s.is_pts ? PTS_TO_PCR : DTS_TO_PCR;
  return s.is_pts ? PTS_SKEW : DTS_SKEW;
}

tsan_sample_kind sample_kind_of(measure what) {
  return what == PCR_INTERVAL ? TSAN_PCR_INTERVAL
         : what <= DTS_TO_PCR ? TSAN_STAMP_TO_PCR
                              : TSAN_AUDIO_TO_REF;
}

void report_data::make_room(uint64_t at) {
  for (; at / width >= MAX_BUCKETS; width *= 2) {
    for (series &s : measured)
      merge_neighbours(s.buckets);
    for (alert_row &row : rows)
      merge_neighbours(row.marks);
  }
  end = std::max(end, at);
}

void report_data::begin_clock() {
  for (series &s : measured)
    merge_all(s.buckets);
  for (alert_row &row : rows) {
    merge_all(row.marks);
    std::ranges::fill(row.marks, 1);
  }
  for (listed_alert &listed_one : listed)
    listed_one.at = 0;
  has_clock = true;
  end = 0;
  width = 1;
}

// The place on the axis of what happened in that packet.
uint64_t report_data::place_of(double time, uint64_t packet) {
  if (!std::isnan(time) && !has_clock)
    begin_clock();
  uint64_t at = packet;
  if (has_clock)
    at = std::isnan(time) ? 0 : whole_ms(time);
  make_room(at);
  return at;
}

measured_series *report_data::find_series(const tsan_sample &s) {
  measured.reserve(MAX_SERIES); // so that what has its place in the map comes to be
  const measure what = measure_of(s);
  const auto [at, is_new] = series_at.try_emplace({s.program, s.pid, what}, measured.size());
  if (!is_new)
    return &measured[at->second];
  if (measured.size() >= MAX_SERIES) {
    series_at.erase(at);
    return nullptr;
  }
  measured.push_back({{}, s.program, s.pid, what});
  return &measured.back();
}

alert_row *report_data::find_row(const tsan_alert &a) {
  rows.reserve(MAX_ROWS);
  const auto [at, is_new] = row_at.try_emplace({a.program, a.pid, a.kind}, rows.size());
  if (!is_new)
    return &rows[at->second];
  if (rows.size() >= MAX_ROWS) {
    row_at.erase(at);
    return nullptr;
  }
  rows.push_back({.program = a.program, .pid = a.pid, .kind = a.kind, .marks = {}});
  return &rows.back();
}

void report_data::count(const tsan_sample &s) {
  if (s.program < 0 || static_cast<size_t>(s.program) >= MAX_PROGRAMS)
    return;
  checked[static_cast<size_t>(s.program)][s.kind].add(static_cast<int64_t>(s.ms));
  sums[static_cast<size_t>(s.program)][measure_of(s)].add(measured_ms(s));
}

void report_data::place(const tsan_alert &a, double time, const allowed_finding *entry) {
  const uint64_t at = place_of(time, a.pkt_idx);
  const uint64_t alike = entry ? allowed[a.kind] : alerts[a.kind] - allowed[a.kind];
  if (alike <= MAX_LISTED) {
    listed.push_back({at, a, time, entry});
    listed.back().alert.ptag = nullptr; // lasts for the call only
  }
  if (alert_row *row = find_row(a)) {
    ++row->count;
    merge_bucket(bucket_at(row->marks, at, width), at + 1);
  } else {
    ++unplaced_alerts;
  }
}

void report_data::place(const tsan_sample &s, double time) {
  const int32_t ms = measured_ms(s);
  const uint64_t at = place_of(time, s.pkt_idx);
  if (measured_series *found = find_series(s)) {
    bucket &here = bucket_at(found->buckets, at, width);
    found->values.add(ms);
    found->sum.add(ms);
    merge_bucket(here, {1, ms, ms, ms});
  } else {
    ++unplaced_samples;
  }
}

void report_data::finish(uint64_t packets, double time) {
  place_of(time, packets);
  std::ranges::sort(
      rows, {}, [](const alert_row &row) { return std::tuple(row.program, row.pid, row.kind); });
  row_at.clear();
}
