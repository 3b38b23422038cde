// Stream time of the packets that the analyzer was handed, from the PCRs of all PIDs.
#pragma once

#include <array>
#include <cmath>
#include <cstdint>

#include "audit/clock.h"
#include "mpegts/packet.h"

class stream_time {
public:
  // Forgets which streams are listed, and lists a video or audio stream.
  void forget_streams();
  void list_stream(uint32_t pid);

  // Takes a packet, number `number` (1-based) of the run.
  void packet(ts_pkt pkt, uint64_t number);

  // Time of the packet at hand, before it is taken, or of the last one, s; NAN as long as there is
  // none. Asked again for a packet it says the same.
  double of(uint64_t number);

  // Time of the last packet, when it was taken.
  double end(uint64_t number) const { return clock_time(clock, number); }

private:
  enum : size_t { MAX_CLOCKS = 256, MAX_STREAMS = 2048 };

  void clocks_and_stamps(ts_pkt pkt, uint64_t number);
  void pcr(ts_pkt pkt, uint64_t number);
  void stamp(ts_pkt pkt, dts_track &track, uint64_t number);

  stream_clock clock;
  uint64_t asked = 0;
  double answer = NAN;
  // By PID, from 1 on; 0: none. PIDs that came when all places were taken tell no time.
  std::array<uint16_t, 8192> clock_of = {}, stream_of = {};
  std::array<bool, 8192> is_listed = {};
  std::array<pcr_track, MAX_CLOCKS> clocks = {};
  std::array<dts_track, MAX_STREAMS> streams = {};
  uint16_t used_clocks = 0, used_streams = 0;
};
