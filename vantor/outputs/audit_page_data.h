// What the page of an audit and --junit collect during the run, in bounded memory: when findings
// came, the first ones of each sort, and the measured values over stream time.
#pragma once

#include <array>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "audit/audit.h"
#include "outputs/baseline.h"
#include "outputs/series.h"

// When findings of one kind came, on one PID or on all of them; on both axes, for a stream may have
// no clock.
struct finding_lane {
  int32_t pid = -1;
  audit_kind kind = {};
  audit_severity severity = {};
  uint64_t count = 0;
  std::vector<mark> by_time = {}, by_packet = {};
};

struct listed_finding {
  audit_kind kind;
  audit_severity severity;
  int32_t pid, program_number;
  uint64_t packet, offset;
  double time;
  std::string what;
  const allowed_finding *allowed; // by this entry of the baseline, or null
};

// The findings of one indicator, or of one kind that has none.
struct finding_group {
  const char *id;                             // "1.4", "STAMP-LATE"
  uint64_t count = 0, allowed = 0, fails = 0; // fails: those that are not allowed
  std::vector<listed_finding> first = {};     // of those that are allowed, and of the others
};

// So many of a series' whole numbers are 1 ms, or 1 kbit/s: room for all distances of 33-bit
// stamps.
inline constexpr int64_t series_parts[AUDIT_SAMPLE_KINDS] = {100, 10, 10, 100};

// One measure of one PID.
struct audit_series : series {
  uint16_t pid;
  audit_sample_kind kind;
  uint64_t next = 0; // where the stretch of the next bitrate begins, ms
};

class audit_page_data {
public:
  // Take what the audit hands out; they throw when memory is refused.
  void add(const audit_finding &finding, const allowed_finding *allowed);
  void add(const audit_sample &sample);

  // Brings both axes to the end of the capture; `duration` NAN: it has no clock.
  void finish(uint64_t packets, double duration);

  const finding_group *group(std::string_view id) const;
  const audit_series *of(uint16_t pid, audit_sample_kind kind) const;

  // An axis: length and width of its buckets, ms or packets.
  struct axis {
    uint64_t length = 0, width = 1;
  };
  axis time, packets;
  std::vector<finding_lane> lanes; // the first ones of PIDs
  std::vector<finding_lane> kinds; // of all PIDs
  uint64_t without_lane = 0;       // findings that came when there were too many of PIDs
  std::vector<finding_group> groups;
  std::vector<audit_series> measured;

private:
  void stretch_time(uint64_t ms);
  void stretch_packets(uint64_t number);
  void mark_lane(finding_lane &lane, const audit_finding &finding);
  finding_lane *lane_of(const audit_finding &finding);
  finding_lane &lane_of(audit_kind kind);
  finding_group &group_of(const audit_finding &finding);
  audit_series *series_of(const audit_sample &sample);

  std::map<std::pair<int32_t, audit_kind>, size_t> lane_at;
  std::array<std::array<uint16_t, 8192>, AUDIT_SAMPLE_KINDS> series_at = {}; // index + 1
  std::array<size_t, AUDIT_SAMPLE_KINDS> series_count = {};
};
