#include "outputs/stream_time.h"

namespace {

enum : uint32_t { PID_NULL = 0x1FFF };

// The place of a PID in an array, given to it when it has none; null: all are taken.
template <typename Track, size_t N>
Track *track_of(uint16_t &place, std::array<Track, N> &tracks, uint16_t &used) {
  if (place == 0 && used < N)
    place = ++used;
  return place != 0 ? &tracks[place - 1u] : nullptr;
}

} // namespace

void stream_time::forget_streams() {
  is_listed.fill(false);
}

void stream_time::list_stream(uint32_t pid) {
  is_listed[pid % is_listed.size()] = true;
}

void stream_time::pcr(ts_pkt pkt, uint64_t number) {
  const uint32_t pid = ts_pid(pkt);
  if (pcr_track *track = track_of(clock_of[pid], clocks, used_clocks))
    clock_pcr(clock, *track, static_cast<int32_t>(pid), number, ts_get_pcr(pkt),
              ts_discontinuity(pkt));
}

void stream_time::stamp(ts_pkt pkt, dts_track &track, uint64_t number) {
  const pkt_bytes pes = ts_get_payload(pkt);
  if (!is_pes_pkt(pes) || !pes_has_PTS(pes))
    return;
  const uint64_t dts = pes_has_DTS(pes) ? pes_get_DTS(pes) : pes_get_PTS(pes);
  clock_dts(clock, track, number, static_cast<int64_t>(dts));
}

void stream_time::clocks_and_stamps(ts_pkt pkt, uint64_t number) {
  const uint32_t pid = ts_pid(pkt);
  if (ts_has_whole_pcr(pkt)) [[unlikely]]
    pcr(pkt, number);
  if (is_listed[pid] && ts_unit_start(pkt) && !ts_is_scrambled(pkt))
    if (dts_track *track = track_of(stream_of[pid], streams, used_streams))
      stamp(pkt, *track, number);
}

void stream_time::packet(ts_pkt pkt, uint64_t number) {
  if (!ts_transport_error(pkt) && ts_pid(pkt) != PID_NULL)
    clocks_and_stamps(pkt, number);
  if (clock_is_due(clock, number))
    clock_estimated_knot(clock, number);
}

double stream_time::of(uint64_t number) {
  if (asked != number) {
    asked = number;
    answer = clock_time(clock, number);
  }
  return answer;
}
