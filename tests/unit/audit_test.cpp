// The transcripts in audit/: what an audit finds in streams that are made packet by packet. Each
// line with "end" is a capture: what was made since the last one.
#include <cstdio>
#include <memory>

#include <gtest/gtest.h>

#include "audit/audit.h"
#include "audit/clock.h"
#include "support/transcript.h"

namespace {

void tell_list(std::string &out, const char *name, const audit_list &list) {
  for (size_t i = 0; i < list.count; ++i)
    out +=
        (i == 0 ? std::string(" ") + name + "=" : std::string(",")) + std::to_string(list.items[i]);
}

template <typename Value>
void tell(std::string &out, const char *name, Value value, Value absent, const char *format) {
  char text[64];
  snprintf(text, sizeof text, format, name, value);
  if (value != absent && value == value)
    out += text;
}

// "CC-LOSS 102 at 7, 3 s: lost=3": every field that says something.
void tell_finding(void *opaque, const audit_finding *f) {
  auto &out = *static_cast<std::string *>(opaque);
  out += audit_kind_name(f->kind);
  tell(out, "", f->pid, -1, "%s %d");
  tell(out, " at", f->packet, uint64_t{0}, "%s %lu");
  tell(out, "-", f->last_packet, f->packet, "%s%lu");
  tell(out, ",", f->time, -1.0, "%s %.3f s");
  for (const auto &[name, value] : {std::pair{"lost", f->lost},
                                    {"counted", f->counted},
                                    {"displaced", f->displaced},
                                    {"moved", f->moved},
                                    {"packets", f->packets}})
    tell(out, name, value, uint64_t{0}, " %s=%lu");
  for (const auto &[name, value] :
       {std::pair{"ms", f->ms}, {"jump_ms", f->jump_ms}, {"step_ms", f->step_ms}, {"ns", f->ns}})
    tell(out, name, value, -1e9, " %s=%.3f");
  tell(out, "table_id", f->table_id, -1, " %s=%d");
  tell(out, "events", f->events, uint64_t{1}, " %s=%lu");
  if (const char *table = audit_table_name(f->table))
    out += std::string(" ") + table;
  out += f->to_end ? " to_end" : "";
  out += f->never ? " never" : "";
  if (f->change) {
    tell_list(out, "added", f->change->added);
    tell_list(out, "removed", f->change->removed);
    tell_list(out, "retyped", f->change->retyped);
    tell_list(out, "descriptors", f->change->descriptors);
    tell(out, "pcr_pid", f->change->pcr_pid_new, -1, " %s=%d");
  }
  out += '\n';
}

std::string findings_in(const std::vector<ts_packet> &packets, audit_profile profile) {
  std::string out;
  audit_config cfg = {};
  cfg.size = sizeof cfg;
  audit_default_config(profile, &cfg);
  cfg.opaque = &out;
  cfg.on_finding = tell_finding;
  const std::unique_ptr<audit_ctx, decltype(&audit_free)> audit(audit_init(&cfg, nullptr),
                                                                audit_free);
  for (size_t i = 0; i < packets.size(); ++i)
    audit_packet(audit.get(), packets[i].data(), i * 188);
  audit_end(audit.get(), AUDIT_COMPLETE);
  return out;
}

// Operations of this test's own: "end dvb" ends the capture; "run 5 tables" is seconds of a sound
// stream, a packet a millisecond, with a PCR on PID 101 each 40 ms and tables each 100 ms; "flag
// 80" sets bits of the adaptation field's flags in the last packet, "header 3 c0" of its header.
struct capture {
  ts_stream s;
  uint64_t pcr = 900'000;

  void run(const operation &op) {
    for (unsigned ms = 0; ms < op.number<unsigned>() * 1000; ++ms) {
      if (ms % 100 == 0 && op.has("tables"))
        s.pat({{1, 100}}),
            s.pmt(100, {.program = 1, .pcr_pid = 101, .es = {{0x1b, 101}, {3, 102}}});
      else if (ms % 40 == 5 && !op.has("still"))
        s.pcr(101, pcr + ms * 90);
      else
        s.data(ms % 10 == 0 && !op.has("mute") ? 102 : 101);
    }
    pcr += op.number<unsigned>() * 90'000;
  }

  std::string play(const std::vector<operation> &operations) {
    std::string out;
    for (const operation &op : operations) {
      if (op.words[0] == "run")
        run(op);
      else if (op.words[0] == "flag")
        s.packets.back()[5] |= static_cast<uint8_t>(std::stoul(op.words.at(1), nullptr, 16));
      else if (op.words[0] == "header")
        s.packets.back()[op.number()] ^=
            static_cast<uint8_t>(std::stoul(op.words.at(2), nullptr, 16));
      else if (op.words[0] == "end") {
        out += findings_in(s.packets, op.has("dvb")   ? AUDIT_DVB
                                      : op.has("ott") ? AUDIT_OTT
                                                      : AUDIT_MPEG);
        *this = {};
      } else {
        EXPECT_TRUE(make_packets(s, op)) << op.words[0];
      }
    }
    return out;
  }
};

class audit_transcripts : public testing::TestWithParam<std::filesystem::path> {};

INSTANTIATE_TEST_SUITE_P(unit, audit_transcripts, testing::ValuesIn(files_in(KORVA_UNIT "/audit")),
                         stem_of);

TEST_P(audit_transcripts, are_what_is_found) {
  capture c;
  expect_transcript(GetParam(),
                    [&](const std::vector<operation> &operations) { return c.play(operations); });
}

struct clock_event {
  int32_t pid;
  uint64_t packet;
  double pcr;            // s; of PID -1: a DTS
  double knot, estimate; // time of the last knot afterwards, and of the packet 10 behind
  bool is_announced = false;
};

void expect_times(const char *what, const std::vector<clock_event> &events) {
  SCOPED_TRACE(what);
  stream_clock clock;
  std::map<int32_t, pcr_track> tracks;
  dts_track dts;
  for (const clock_event &e : events) {
    SCOPED_TRACE(e.packet);
    if (e.pid >= 0)
      clock_pcr(clock, tracks[e.pid], e.pid, e.packet, std::llround(e.pcr * PCR_HZ),
                e.is_announced);
    else
      clock_dts(clock, dts, e.packet, std::llround(e.pcr * STAMP_HZ));
    if (clock_is_due(clock, e.packet))
      clock_estimated_knot(clock, e.packet);
    EXPECT_NEAR(clock.runs ? clock.now.t : -1, e.knot, 1e-6);
    if (clock.runs) {
      EXPECT_NEAR(clock_time(clock, e.packet + 10), e.estimate, 1e-6);
    }
  }
}

// A PID that keeps the rate, 1 ms a packet, until its PCR at `packets`.
std::vector<clock_event> steady(uint64_t packets) {
  std::vector<clock_event> events;
  for (uint64_t i = 0; i <= packets; i += 100) {
    const double t = static_cast<double>(i) / 1000;
    events.push_back({1, i + 1, t, i == 0 ? -1 : t, t + 0.01});
  }
  return events;
}

std::vector<clock_event> after_steady(std::vector<clock_event> more) {
  std::vector<clock_event> events = steady(2000);
  events.insert(events.end(), more.begin(), more.end());
  return events;
}

TEST(audit_clock, tells_time) {
  expect_times("varying rate: packets are not time, decoding times are",
               {{1, 1, 5, -1, 0},
                {1, 101, 5.04, 0.04, 0.044},
                {1, 1101, 5.08, 0.08, 0.08 + 0.08 / 110},
                {-1, 1102, 1, 0.08, 0.08 + 11 * 0.08 / 1100},
                {-1, 1150, 1.02, 0.08, 0.1},
                {-1, 1160, 4, 0.08, 0.1}});
  expect_times("a jump of a steady clock is not time", after_steady({{1, 2101, 9, 2.1, 2.11}}));
  expect_times("an announced one neither", after_steady({{1, 2101, 2.14, 2.1, 2.11, true}}));
  expect_times("packets lost together with time are",
               after_steady({{1, 2501, 2.5, 2.5, 2.51}, {1, 2601, 2.6, 2.6, 2.61}}));
  expect_times("another PID becomes master when the first stays away",
               after_steady({{2, 2002, 50, 2, 2.011},
                             {2, 2502, 50.5, 2, 2.511},
                             {2, 3002, 51, 2, 3.011},
                             {2, 3502, 51.5, 3.5, 3.5 + 10 * 3.5 / 3501}}));
  expect_times("5,000 packets without a PCR are a knot at the estimate",
               after_steady({{-1, 7001, 1, 7, 7.01}}));
  expect_times("the counter wraps",
               {{1, 1, 95443.7, -1, 0}, {1, 11, 95443.7 + 0.04 - 95443.7176888889, 0.04, 0.08}});
}

} // namespace
