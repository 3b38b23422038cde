#include "outputs/audit_page_data.h"

#include <algorithm>
#include <cinttypes>
#include <cmath>
#include <limits>
#include <tuple>

#include "audit/clock.h"
#include "outputs/audit_lines.h"
#include "outputs/audit_words.h"

namespace {

enum : size_t {
  MAX_LANES = 100, // 8 KiB each
  MAX_SERIES = 48, // of each measure, 20 KiB each; no more plots are drawn
  MAX_BITRATES = 512,
  MAX_LISTED = 24, // findings of each group
};
constexpr double SECOND_MS = 1000;

uint64_t ms_of(double time) {
  return std::isnan(time) ? 0 : whole_ms(time);
}

int32_t parts_of(const audit_sample &s) {
  constexpr double greatest = std::numeric_limits<int32_t>::max();
  const auto parts = static_cast<double>(series_parts[s.kind]);
  const double value = s.kind == AUDIT_BITRATE ? s.value / 1000 : s.value;
  return static_cast<int32_t>(nearest(std::clamp(value * parts, -greatest, greatest)));
}

std::string repetition(const audit_finding &f) {
  if (f.events == 1)
    return "";
  return text(", %" PRIu64 " times up to packet %" PRIu64, f.events, f.last_packet);
}

uint64_t last_ms_of(const audit_finding &f) {
  return std::max(ms_of(f.time), ms_of(f.last_time));
}

// Marks a stretch in each bucket that it touches.
void mark_stretch(std::vector<mark> &marks, uint64_t begin, uint64_t end, uint64_t width) {
  for (uint64_t at = begin; at <= end; at = (at / width + 1) * width)
    merge_bucket(bucket_at(marks, at, width), at + 1);
}

// Widens buckets until the axis reaches there.
template <typename Merge> void stretch(audit_page_data::axis &axis, uint64_t to, Merge merge) {
  for (; to / axis.width >= MAX_BUCKETS; axis.width *= 2)
    merge();
  axis.length = std::max(axis.length, to);
}

} // namespace

void audit_page_data::stretch_time(uint64_t ms) {
  stretch(time, ms, [&] {
    for (audit_series &s : measured)
      merge_neighbours(s.buckets);
    for (auto *those : {&lanes, &kinds})
      for (finding_lane &lane : *those)
        merge_neighbours(lane.by_time);
  });
}

void audit_page_data::stretch_packets(uint64_t number) {
  stretch(packets, number, [&] {
    for (auto *those : {&lanes, &kinds})
      for (finding_lane &lane : *those)
        merge_neighbours(lane.by_packet);
  });
}

finding_lane *audit_page_data::lane_of(const audit_finding &f) {
  const auto found = lane_at.find({f.pid, f.kind});
  if (found != lane_at.end())
    return &lanes[found->second];
  if (lanes.size() >= MAX_LANES)
    return nullptr;
  lanes.push_back({.pid = f.pid, .kind = f.kind, .severity = f.severity});
  lane_at[{f.pid, f.kind}] = lanes.size() - 1;
  return &lanes.back();
}

finding_lane &audit_page_data::lane_of(audit_kind kind) {
  const auto found = std::ranges::find(kinds, kind, &finding_lane::kind);
  return found != kinds.end() ? *found : kinds.emplace_back(finding_lane{.kind = kind});
}

void audit_page_data::mark_lane(finding_lane &lane, const audit_finding &f) {
  ++lane.count;
  lane.severity = std::max(lane.severity, f.severity);
  mark_stretch(lane.by_time, ms_of(f.time), last_ms_of(f), time.width);
  mark_stretch(lane.by_packet, f.packet, f.last_packet, packets.width);
}

finding_group &audit_page_data::group_of(const audit_finding &f) {
  const char *id = f.indicator ? f.indicator : audit_kind_name(f.kind);
  const auto found = std::ranges::find_if(
      groups, [&](const finding_group &g) { return std::string_view(g.id) == id; });
  return found != groups.end() ? *found : groups.emplace_back(finding_group{.id = id});
}

audit_series *audit_page_data::series_of(const audit_sample &s) {
  uint16_t &place = series_at[s.kind][s.pid];
  if (place != 0)
    return &measured[place - 1u];
  if (series_count[s.kind] >= (s.kind == AUDIT_BITRATE ? MAX_BITRATES : MAX_SERIES))
    return nullptr;
  measured.push_back({{}, s.pid, s.kind});
  ++series_count[s.kind];
  place = static_cast<uint16_t>(measured.size());
  return &measured.back();
}

void audit_page_data::add(const audit_finding &f, const allowed_finding *allowed) {
  stretch_time(last_ms_of(f));
  stretch_packets(f.last_packet);
  mark_lane(lane_of(f.kind), f);
  if (finding_lane *lane = lane_of(f))
    mark_lane(*lane, f);
  else
    ++without_lane;
  finding_group &group = group_of(f);
  ++group.count;
  group.allowed += allowed != nullptr;
  group.fails += !allowed && f.severity == AUDIT_FAIL;
  if ((allowed ? group.allowed : group.count - group.allowed) <= MAX_LISTED)
    group.first.push_back({f.kind, f.severity, f.pid, f.program_number, f.packet, f.offset, f.time,
                           what_happened(f) + repetition(f), allowed});
}

void audit_page_data::add(const audit_sample &sample) {
  audit_series *s = series_of(sample);
  if (!s)
    return;
  const int32_t value = parts_of(sample);
  const uint64_t at = ms_of(sample.time);
  uint64_t begin = at;
  if (sample.kind == AUDIT_BITRATE) // of what lies before
    begin = s->next != 0 ? s->next
                         : static_cast<uint64_t>(std::max(0.0, sample.time * 1000 - SECOND_MS));
  stretch_time(at);
  s->next = at + 1;
  s->sum.add(value);
  if (sample.kind != AUDIT_BITRATE) // of which no histogram is drawn
    s->values.add(value);
  for (; begin <= at; begin = (begin / time.width + 1) * time.width)
    merge_bucket(bucket_at(s->buckets, begin, time.width), {1, value, value, value});
}

void audit_page_data::finish(uint64_t last_packet, double duration) {
  stretch_time(ms_of(duration));
  stretch_packets(last_packet);
  for (auto *those : {&lanes, &kinds})
    std::ranges::sort(*those, {}, [](const finding_lane &lane) {
      return std::tuple(-lane.severity, lane.kind, lane.pid);
    });
  lane_at.clear();
  for (finding_group &group : groups)
    std::ranges::sort(group.first, {}, &listed_finding::packet);
}

const finding_group *audit_page_data::group(std::string_view id) const {
  const auto found =
      std::ranges::find_if(groups, [&](const finding_group &g) { return g.id == id; });
  return found != groups.end() ? &*found : nullptr;
}

const audit_series *audit_page_data::of(uint16_t pid, audit_sample_kind kind) const {
  const uint16_t place = series_at[kind][pid];
  return place != 0 ? &measured[place - 1u] : nullptr;
}
