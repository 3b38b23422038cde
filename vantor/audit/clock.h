// Stream time: seconds of the stream's own clock for each packet.
//
// Time is known at knots, packets at which PCRs say so, and estimated between them. The PCRs of one
// PID, the master, make the knots; when they stay away for a second of another PID's, that one
// becomes master. In a stream of varying rate the number of packets says little about time, so an
// estimate follows the rate only where the master keeps to it; else the decoding times that streams
// have moved on by since the knot say at least how much of the programme was sent.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>

inline constexpr double PCR_HZ = 27e6;
inline constexpr double STAMP_HZ = 90e3;
inline constexpr int64_t PCR_MODULO = (int64_t{1} << 33) * 300;
inline constexpr int64_t STAMP_MODULO = int64_t{1} << 33;

// The nearest whole number, of a half the one away from 0: as std::round(), without the library of
// mathematics, which takes more address space than the rest of the program.
inline double nearest(double x) {
  if (!(std::abs(x) < 0x1p52)) // is one, or none
    return x;
  const auto whole = static_cast<double>(static_cast<int64_t>(x));
  const double rest = x - whole;
  return whole + (rest >= 0.5) - (rest <= -0.5);
}

// Signed distance of two values of a counter that wraps at `modulo`.
inline int64_t wrapped_step(int64_t to, int64_t from, int64_t modulo) {
  int64_t d = (to - from) % modulo;
  if (d < 0)
    d += modulo;
  return d > modulo / 2 ? d - modulo : d;
}

// What estimates stand on: the last knot and what is known of the rate there.
struct clock_base {
  uint64_t packet = 0; // of the knot
  double t = 0;        // its time, s
  double rate = 0;     // s per packet of the whole stream, 0 before the clock runs
  double interval = 0; // the master's last good PCR interval, s
  bool is_steady = false;
};

// `ahead`: s by which decoding times have moved on since the knot, at that packet.
inline double estimate(const clock_base &base, uint64_t packet, double ahead) {
  const double by_rate = base.rate * static_cast<double>(packet - base.packet);
  if (base.is_steady)
    return base.t + by_rate;
  return base.t + std::max(ahead, std::min(by_rate, base.interval));
}

// The PCRs of one PID.
struct pcr_track {
  int64_t last = 0;        // 27 MHz
  uint64_t packet = 0;     // of the last one, 0 = none yet
  uint32_t within = 0;     // good intervals in a row that fitted the rate
  double sum = 0;          // s of good intervals behind ...
  uint64_t sum_behind = 0; // ... the master's PCR in this packet
};

// The decoding times of one video or audio stream since the last knot.
struct dts_track {
  int64_t last = 0;    // 90 kHz
  uint64_t packet = 0; // of the last one, 0 = none yet
  uint64_t knot = 0;   // count of knots when `sum` began
  double sum = 0;      // s
};

struct stream_clock {
  bool runs = false;
  clock_base now;    // the last knot
  clock_base before; // the one before it
  bool knot_has_pcr = false;
  uint64_t knots = 0;
  uint64_t start = 0;         // packet in which time is 0
  int32_t master = -1;        // PID
  uint64_t master_packet = 0; // its last PCR
  double master_t = 0;
  double ahead = 0; // s, see estimate()
};

// What one PCR says.
struct pcr_step {
  bool is_interval = false; // there was one before it on its PID
  int64_t d = 0;            // to that one, 27 MHz
  uint64_t packets = 0;     // from that one
  bool is_good = false;     // fit to tell time by
  bool is_expected = false; // as far as rate or decoding times let expect
  bool is_knot = false;
};

// Takes a PCR (27 MHz, 42 bits) of packet `packet` on `pid`; `is_announced`: with the
// discontinuity_indicator set.
pcr_step clock_pcr(stream_clock &clock, pcr_track &track, int32_t pid, uint64_t packet, int64_t pcr,
                   bool is_announced);

// Takes a decoding time (90 kHz, 33 bits) of a listed video or audio stream, after the PCR of its
// packet.
void clock_dts(stream_clock &clock, dts_track &track, uint64_t packet, int64_t dts);

// A knot at the estimate: behind all else of a packet that is far from the last one.
inline constexpr uint64_t KNOT_PACKETS = 5000;
inline bool clock_is_due(const stream_clock &clock, uint64_t packet) {
  return clock.runs && packet - clock.now.packet >= KNOT_PACKETS;
}
void clock_estimated_knot(stream_clock &clock, uint64_t packet);

// Time of a packet from the last knot on, NAN before the clock runs.
inline double clock_time(const stream_clock &clock, uint64_t packet) {
  return clock.runs ? estimate(clock.now, packet, clock.ahead) : NAN;
}

// Time of a packet between the last two knots, on the line from one to the other.
double clock_line(const stream_clock &clock, uint64_t packet);
