#include "audit/stamps.h"

#include <algorithm>

#include "audit/findings.h"
#include "audit/listing.h"
#include "audit/recurrence.h"
#include "audit/samples.h"

namespace {

constexpr double OTHER_BASE_MS = 60'000;
constexpr double LONG_GOP_DELAY_MS = 10'000; // of video later than ISO/IEC 13818-2 (2.7.4 ff.)
enum : int64_t { LONGEST_BETWEEN = 2'700'000, PCR_TICKS = 300 }; // 27 MHz: 0.1 s, a tick of 90 kHz

struct stamps {
  bool are_there = false;
  int64_t pts = 0, dts = 0; // 90 kHz; DTS is PTS where there is none
};

// Streams whose packets have no header to bear stamps (table 2-21).
bool bears_stamps(uint8_t stream_id) {
  constexpr uint8_t bare[] = {0xBC, 0xBE, 0xBF, 0xF0, 0xF1, 0xF2, 0xF8, 0xFF};
  return stream_id >= 0xBC && std::ranges::find(bare, stream_id) == std::end(bare);
}

stamps read_stamps(pkt_bytes pes) {
  enum : size_t { HEADER_LENGTH_AT = 8 };
  if (!is_pes_pkt(pes) || !bears_stamps(pes[3]) || !pes_has_PTS(pes))
    return {};
  const bool has_dts = (ts_read_once(&pes[7]) & 0xC0) == 0xC0;
  const size_t stamps_size = PES_STAMP_SIZE * (has_dts ? 2 : 1);
  if (pes.size() < PES_PTS_AT + stamps_size || pes[HEADER_LENGTH_AT] < stamps_size)
    return {};
  const auto pts = static_cast<int64_t>(pes_get_PTS(pes));
  return {true, pts, has_dts ? static_cast<int64_t>(pes_get_DTS(pes)) : pts};
}

double ms_of(int64_t ticks_90khz) {
  return static_cast<double>(ticks_90khz) / 90;
}

void raise_stamp(audit_ctx &a, event e, audit_kind kind, double ms) {
  e.kind = kind;
  e.value = ms;
  raise(a, std::move(e));
}

// What the stamps say by themselves.
void judge_alone(audit_ctx &a, uint16_t pid, const stamps &s, uint32_t run) {
  pid_record &rec = a.records[pid];
  if (const int64_t order = wrapped_step(s.pts, s.dts, STAMP_MODULO); order < 0)
    raise_stamp(a, event_here(a, AUDIT_STAMP_ORDER, pid), AUDIT_STAMP_ORDER, ms_of(-order));
  if (rec.has_last_dts && rec.last_dts_run == run) {
    const int64_t step = wrapped_step(s.dts, rec.last_dts, STAMP_MODULO);
    if (step <= 0)
      raise_stamp(a, event_here(a, AUDIT_STAMP_BACK, pid), AUDIT_STAMP_BACK, ms_of(step));
  }
  rec.has_last_dts = true;
  rec.last_dts = s.dts;
  rec.last_dts_run = run;
}

void count_pts(audit_ctx &a, uint16_t pid) {
  watch &w = a.records[pid].pts;
  if (!w.is_on)
    start_watch(w, recurs::pts, pid, AUDIT_NO_TABLE, true);
  came(a, w);
  a.has_pts = true;
}

void wait_for_pcr(audit_ctx &a, uint16_t pid, int32_t clock_pid, const stamps &s, uint32_t run) {
  if (clock_pid < 0 || a.records[static_cast<size_t>(clock_pid)].pcr.packet == 0)
    return;
  clock_record *clock = clock_record_of(a, static_cast<uint16_t>(clock_pid));
  if (!clock)
    return;
  if (clock->waiting.size() >= MAX_WAITING)
    clock->waiting.erase(clock->waiting.begin());
  clock->waiting.push_back({.packet = a.packet,
                            .offset = a.offset,
                            .time = now(a),
                            .pts = s.pts,
                            .dts = s.dts,
                            .run = run,
                            .pid = pid});
}

// Counts discontinuities of a stream and of its clock: steps are judged between two stamps of one
// run only.
uint32_t run_of(const audit_ctx &a, uint16_t pid, int32_t clock_pid) {
  const clock_record *clock =
      clock_pid < 0 ? nullptr : a.records[static_cast<size_t>(clock_pid)].clock;
  return a.records[pid].run + (clock ? clock->run : 0);
}

// Signed distance of a stamp to its clock, ms. The clock is linear in packet numbers between two
// PCRs.
double delay_ms(int64_t stamp, uint64_t packet, const pcr_track &before, const pcr_step &step) {
  const double passed = static_cast<double>(step.d) * static_cast<double>(packet - before.packet) /
                        static_cast<double>(step.packets);
  const auto to_pcr = static_cast<double>(wrapped_step(stamp * PCR_TICKS, before.last, PCR_MODULO));
  double distance = to_pcr - passed;
  constexpr auto modulo = static_cast<double>(PCR_MODULO);
  if (distance < -modulo / 2)
    distance += modulo;
  return distance / 27e3;
}

void measure(delay_stats &stats, double ms) {
  stats.min = stats.count == 0 ? ms : std::min(stats.min, ms);
  stats.max = stats.count == 0 ? ms : std::max(stats.max, ms);
  stats.sum += ms;
  ++stats.count;
}

// How long before its decoding an access unit may be sent, 0: any time.
double longest_delay_ms(const audit_ctx &a, const pid_record &rec) {
  const double limit = a.cfg.limits[AUDIT_DELAY_MS];
  const bool is_mpeg_video = rec.stream_type == 0x01 || rec.stream_type == 0x02;
  if (limit == 0 || rec.kind != 'V' || is_mpeg_video)
    return limit;
  return std::max(limit, LONG_GOP_DELAY_MS);
}

void judge_delay(audit_ctx &a, const waiting_stamps &s, double delay) {
  pid_record &rec = a.records[s.pid];
  event e = {.kind = AUDIT_STAMP_LATE, .pid = s.pid};
  e.packet = s.packet;
  e.offset = s.offset;
  e.time = s.time;
  const double longest = longest_delay_ms(a, rec);
  if (std::abs(delay) > OTHER_BASE_MS)
    raise_stamp(a, std::move(e), AUDIT_STAMP_BASE, delay);
  else if (delay < 0)
    raise_stamp(a, std::move(e), AUDIT_STAMP_LATE, -delay);
  else if (longest != 0 && delay > longest)
    raise_stamp(a, std::move(e), AUDIT_STAMP_DELAY, delay);
}

void judge_delay_step(audit_ctx &a, const waiting_stamps &s, double delay) {
  pid_record &rec = a.records[s.pid];
  const double limit = a.cfg.limits[rec.kind == 'V' ? AUDIT_VIDEO_STEP_MS : AUDIT_AUDIO_STEP_MS];
  const double step = delay - rec.last_delay;
  const bool follows = rec.has_last_delay && rec.last_delay_run == s.run;
  if (follows && limit != 0 && std::abs(step) > limit) {
    event e = {.kind = AUDIT_STAMP_JUMP, .pid = s.pid};
    e.packet = s.packet;
    e.offset = s.offset;
    e.time = s.time;
    raise_stamp(a, std::move(e), AUDIT_STAMP_JUMP, step);
  }
  rec.has_last_delay = true;
  rec.last_delay = delay;
  rec.last_delay_run = s.run;
}

} // namespace

void take_pes_header(audit_ctx &a, uint16_t pid, pkt_bytes payload) {
  const stamps s = read_stamps(payload);
  if (!s.are_there)
    return;
  clock_dts(a.clock, a.records[pid].dts, a.packet, s.dts);
  count_pts(a, pid);
  const int32_t clock_pid = clock_of(a, pid);
  const uint32_t run = run_of(a, pid, clock_pid);
  judge_alone(a, pid, s, run);
  wait_for_pcr(a, pid, clock_pid, s, run);
}

void restart_steps(audit_ctx &a, uint16_t pid) {
  ++a.records[pid].run;
}

void judge_waiting_stamps(audit_ctx &a, clock_record &clock, const pcr_track &before,
                          const pcr_step &step, bool is_broken) {
  if (is_broken) {
    ++clock.run;
  } else if (step.d <= LONGEST_BETWEEN) {
    for (const waiting_stamps &s : clock.waiting) {
      if (!(a.pids[s.pid].flags & PID_STAMPED))
        continue; // no PMT lists it any more
      const double pts_ms = delay_ms(s.pts, s.packet, before, step);
      const double dts_ms = delay_ms(s.dts, s.packet, before, step);
      measure(a.records[s.pid].pts_delay, pts_ms);
      measure(a.records[s.pid].dts_delay, dts_ms);
      hand_sample(a, AUDIT_PTS_DELAY, s.pid, s.time, pts_ms);
      hand_sample(a, AUDIT_DTS_DELAY, s.pid, s.time, dts_ms);
      judge_delay(a, s, dts_ms);
      judge_delay_step(a, s, dts_ms);
    }
  }
  clock.waiting.clear();
}
