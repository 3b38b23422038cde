#include "audit/clock.h"

namespace {

enum : int64_t { LONGEST_GOOD = 27'000'000, SURELY_GOOD = 2'700'000 }; // 27 MHz: 1 s, 0.1 s
enum : uint32_t { STEADY_INTERVALS = 16 };

constexpr double STEADY_TOLERANCE = 0.1, EXPECTED_TOLERANCE = 0.5, EXPECTED_LEAST = 0.1; // s
constexpr double LONGEST_DTS_STEP = 1, MASTER_AWAY = 1, UNTOLD_STEP = 0.1;               // s

bool is_steady(const pcr_track &track) {
  return track.within >= STEADY_INTERVALS;
}

bool is_expected(const stream_clock &clock, const pcr_track &track, int32_t pid,
                 const pcr_step &step) {
  double expected = 0;
  if (is_steady(track))
    expected = clock.now.rate * static_cast<double>(step.packets);
  else if (pid == clock.master)
    expected = clock.ahead;
  else
    return false;
  const double off = std::abs(static_cast<double>(step.d) / PCR_HZ - expected);
  return off <= std::max(EXPECTED_TOLERANCE * expected, EXPECTED_LEAST);
}

void judge(const stream_clock &clock, const pcr_track &track, int32_t pid, bool is_announced,
           pcr_step &step) {
  if (is_announced || step.d <= 0)
    return;
  step.is_expected = is_expected(clock, track, pid, step);
  step.is_good =
      step.d <= LONGEST_GOOD && (step.d <= SURELY_GOOD || !is_steady(track) || step.is_expected);
}

// Does the interval fit the rate known before its second PCR?
void count_fitting(const stream_clock &clock, pcr_track &track, const pcr_step &step) {
  if (!step.is_good || clock.now.rate == 0)
    return;
  const double by_rate = clock.now.rate * static_cast<double>(step.packets);
  const double off = std::abs(static_cast<double>(step.d) / PCR_HZ - by_rate);
  track.within = off <= STEADY_TOLERANCE * by_rate ? track.within + 1 : 0;
}

void set_knot(stream_clock &clock, uint64_t packet, double t) {
  clock.before = clock.now;
  clock.now.packet = packet;
  clock.now.t = std::max(t, clock.before.t);
  if (packet > clock.start)
    clock.now.rate = clock.now.t / static_cast<double>(packet - clock.start);
  clock.ahead = 0;
  ++clock.knots;
}

// A knot at a PCR of the PID that is, or becomes, master.
void set_master_knot(stream_clock &clock, const pcr_track &track, int32_t pid, uint64_t packet,
                     double t, const pcr_step &step) {
  set_knot(clock, packet, t);
  clock.knot_has_pcr = true;
  clock.master = pid;
  clock.master_packet = packet;
  clock.master_t = clock.now.t;
  clock.now.is_steady = is_steady(track);
  if (step.is_good)
    clock.now.interval = static_cast<double>(step.d) / PCR_HZ;
}

void start_clock(stream_clock &clock, const pcr_track &track) {
  clock.runs = true;
  clock.start = track.packet;
  clock.now.packet = track.packet;
}

// How far the master's PCR takes time on: by its own word where that can be believed, else by the
// rate.
double master_advance(const stream_clock &clock, const pcr_track &track, const pcr_step &step) {
  if (step.is_good || step.is_expected)
    return static_cast<double>(step.d) / PCR_HZ;
  const double by_rate = clock.now.rate * static_cast<double>(step.packets);
  return is_steady(track) ? by_rate : std::min(by_rate, UNTOLD_STEP);
}

// Time that this PID has told since the master's last PCR, s.
double time_without_master(const stream_clock &clock, pcr_track &track, const pcr_step &step) {
  if (track.sum_behind != clock.master_packet) {
    track.sum_behind = clock.master_packet;
    track.sum = 0;
  }
  if (step.is_good && track.packet > clock.master_packet)
    track.sum += static_cast<double>(step.d) / PCR_HZ;
  return track.sum;
}

} // namespace

pcr_step clock_pcr(stream_clock &clock, pcr_track &track, int32_t pid, uint64_t packet, int64_t pcr,
                   bool is_announced) {
  pcr_step step;
  if (track.packet != 0) {
    step.is_interval = true;
    step.d = wrapped_step(pcr, track.last, PCR_MODULO);
    step.packets = packet - track.packet;
    judge(clock, track, pid, is_announced, step);
    const pcr_track was = track; // steadiness as it was before this PCR
    count_fitting(clock, track, step);

    if (!clock.runs && step.is_good) {
      start_clock(clock, track);
      set_master_knot(clock, track, pid, packet, static_cast<double>(step.d) / PCR_HZ, step);
      step.is_knot = true;
    } else if (clock.runs && pid == clock.master) {
      set_master_knot(clock, track, pid, packet, clock.master_t + master_advance(clock, was, step),
                      step);
      step.is_knot = true;
    } else if (clock.runs) {
      const double told = time_without_master(clock, track, step);
      if (told > MASTER_AWAY) {
        set_master_knot(clock, track, pid, packet, clock.master_t + told, step);
        step.is_knot = true;
      }
    }
  }
  track.last = pcr;
  track.packet = packet;
  return step;
}

void clock_dts(stream_clock &clock, dts_track &track, uint64_t packet, int64_t dts) {
  if (!clock.runs)
    return;
  if (track.knot != clock.knots) {
    track.knot = clock.knots;
    track.sum = 0;
  }
  if (track.packet != 0 && track.packet >= clock.now.packet) {
    const auto step = static_cast<double>(wrapped_step(dts, track.last, STAMP_MODULO)) / STAMP_HZ;
    if (step > 0 && step <= LONGEST_DTS_STEP)
      track.sum += step;
    clock.ahead = std::max(clock.ahead, track.sum);
  }
  track.last = dts;
  track.packet = packet;
}

void clock_estimated_knot(stream_clock &clock, uint64_t packet) {
  set_knot(clock, packet, clock_time(clock, packet));
  clock.knot_has_pcr = false;
}

double clock_line(const stream_clock &clock, uint64_t packet) {
  const clock_base &from = clock.before, &to = clock.now;
  if (packet <= from.packet)
    return from.t;
  if (packet >= to.packet)
    return to.t;
  return from.t + (to.t - from.t) * static_cast<double>(packet - from.packet) /
                      static_cast<double>(to.packet - from.packet);
}
