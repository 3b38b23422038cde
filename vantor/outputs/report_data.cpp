#include "outputs/report_data.h"

#include <algorithm>

namespace {

enum : uint64_t {
  CLOCK_MASK = (uint64_t{1} << 33) - 1,
  TICKS_PER_MS = 90,
  MAX_STEP = 60'000 * TICKS_PER_MS,
};

} // namespace

void merge_bucket(bucket &into, const bucket &from) {
  if (from.count == 0)
    return;
  into.min = into.count == 0 ? from.min : std::min(into.min, from.min);
  into.max = std::max(into.max, from.max);
  into.count += from.count;
  into.total += from.total;
}

// Everything before the first PCR came at time 0.
template <typename Bucket> static void merge_all(std::vector<Bucket> &buckets) {
  for (size_t i = 1; i < buckets.size(); ++i)
    merge_bucket(buckets[0], buckets[i]);
  buckets.resize(std::min<size_t>(buckets.size(), 1));
}

void measure_sum::add(uint64_t ms) {
  min = count == 0 ? ms : std::min(min, ms);
  max = std::max(max, ms);
  ++count;
  total += ms;
}

void report_data::halve() {
  for (series &s : measured)
    merge_neighbours(s.buckets);
  for (alert_row &row : rows)
    merge_neighbours(row.buckets);
  width *= 2;
}

void report_data::make_room(uint64_t at) {
  while (at / width >= MAX_BUCKETS)
    halve();
  end = std::max(end, at);
}

void report_data::begin_clock() {
  for (series &s : measured)
    merge_all(s.buckets);
  for (alert_row &row : rows)
    merge_all(row.buckets);
  for (listed_alert &listed_one : listed)
    listed_one.at = 0;
  clock_seen = true;
  now = end = 0;
  width = FIRST_WIDTH;
}

// Stream time of what happened after `last_pcr` of `program` in packet `pkt_idx`.
uint64_t report_data::place(int program, uint64_t last_pcr, uint64_t pkt_idx) {
  const auto index = static_cast<size_t>(program);
  if (has_clock && program >= 0 && index < MAX_PROGRAMS && last_pcr != 0) {
    if (!clock_seen)
      begin_clock();
    pcr_clock &clock = clocks[index];
    const uint64_t step = (last_pcr - clock.last_pcr) & CLOCK_MASK;
    if (!clock.is_started)
      clock = {.is_started = true, .last_pcr = last_pcr, .ticks = now * TICKS_PER_MS};
    else if (step <= MAX_STEP)
      clock.ticks += step;
    clock.last_pcr = last_pcr;
    now = std::max(now, clock.ticks / TICKS_PER_MS);
    make_room(now);
    return clock.ticks / TICKS_PER_MS;
  }
  if (!clock_seen)
    now = pkt_idx == 0 ? 0 : pkt_idx - 1;
  make_room(now);
  return now;
}

template <typename Bucket>
static Bucket &bucket_at(std::vector<Bucket> &buckets, uint64_t at, uint64_t width) {
  const auto i = static_cast<size_t>(at / width);
  if (i >= buckets.size())
    buckets.resize(i + 1);
  return buckets[i];
}

series *report_data::find_series(const tsan_sample &s) {
  const auto [at, is_new] = series_at.try_emplace({s.program, s.pid, s.kind}, measured.size());
  if (!is_new)
    return &measured[at->second];
  if (measured.size() >= MAX_SERIES) {
    series_at.erase(at);
    return nullptr;
  }
  measured.push_back(
      {.program = s.program, .pid = s.pid, .kind = s.kind, .sum = {}, .values = {}, .buckets = {}});
  return &measured.back();
}

alert_row *report_data::find_row(const tsan_alert &a) {
  const auto [at, is_new] = row_at.try_emplace({a.program, a.pid, a.kind}, rows.size());
  if (!is_new)
    return &rows[at->second];
  if (rows.size() >= MAX_ROWS) {
    row_at.erase(at);
    return nullptr;
  }
  rows.push_back({.program = a.program, .pid = a.pid, .kind = a.kind, .buckets = {}});
  return &rows.back();
}

void report_data::alert(const tsan_alert &a) {
  // PID-NDAT belongs to the program of the silent stream, the PCR to that of the packet at hand.
  const int clock_program = a.kind == TSAN_PID_NDAT ? -1 : a.program;
  const uint64_t at = place(clock_program, a.last_pcr, a.pkt_idx);
  ++alerts[a.kind];
  if (alerts[a.kind] <= MAX_LISTED) {
    listed.push_back({at, a, a.ptag});
    listed.back().alert.ptag = nullptr;
  }
  if (alert_row *row = find_row(a)) {
    ++row->count;
    ++bucket_at(row->buckets, at, width);
  } else {
    ++unplotted;
  }
}

void report_data::sample(const tsan_sample &s) {
  const uint64_t at = place(s.program, s.last_pcr, s.pkt_idx);
  const auto ms = static_cast<uint32_t>(s.ms);
  if (s.program >= 0 && static_cast<size_t>(s.program) < MAX_PROGRAMS)
    sums[static_cast<size_t>(s.program)][s.kind].add(ms);
  if (series *found = find_series(s)) {
    found->sum.add(ms);
    found->values.add(ms);
    merge_bucket(bucket_at(found->buckets, at, width), {1, ms, ms, ms});
  } else {
    ++unplotted;
  }
}

void report_data::finish(uint64_t packets) {
  if (!clock_seen)
    make_room(packets);
  std::ranges::sort(
      rows, {}, [](const alert_row &row) { return std::tuple(row.program, row.pid, row.kind); });
  row_at.clear();
}
