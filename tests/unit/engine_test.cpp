// The transcripts in engine/: what the analyzer writes about streams that are made packet by packet
// (of its report only what is not 0), and "= n" for a result other than 0.
#include <memory>
#include <regex>
#include <span>

#include <gtest/gtest.h>

#include "support/engine.h"
#include "support/transcript.h"
#include "tassert/tassert.h"
#include "tsanalyze/readout.h"

namespace {

using action = void (*)(engine &, const operation &);

void set(engine &e, const operation &op) {
  tsan_config &cfg = e.config();
  for (const auto &[name, value] : op.named)
    if (name == "track")
      tsan_xtrack_opt(value.c_str(), &cfg);
    else if (name == "level")
      g_mod_ll[0] = std::stoi(value);
    else
      tsan_cli_opt((name + "=" + value).c_str(), &cfg);
  cfg.is_enabled = op.get("checks", cfg.is_enabled);
  cfg.no_rlog = !op.get("human", !cfg.no_rlog);
  cfg.access_log_alerts = op.get("terse", cfg.access_log_alerts);
  cfg.max_ndat_pcount = op.get("ndat", cfg.max_ndat_pcount);
  cfg.dump_stats_period = op.get("period", cfg.dump_stats_period);
}

void set_clock(engine &, const operation &op) {
  const auto ms = op.number<long>();
  test_now = {ms / 1000, ms % 1000 * 1'000'000};
}

// The lines of the report that are like this.
void write_report(engine &e, const std::regex &like) {
  const std::string before = e.run();
  tsan_dump_stats(e.out, e);
  std::istringstream report(e.run());
  fputs(before.c_str(), e.out);
  for (std::string line; std::getline(report, line);)
    if (std::regex_match(line, like))
      fprintf(e.out, "%s\n", line.c_str());
}

// What a program that embeds the analyzer hears: every field that is not 0.
void tell_alert(void *out, const tsan_alert *alert) {
  const tsan_alert &a = *alert;
  const std::pair<const char *, uint64_t> fields[] = {
      {"pid", a.pid},
      {"packet", a.pkt_idx},
      {"last_pcr", a.last_pcr},
      {"dgram", a.dgram},
      {"last", static_cast<uint64_t>(a.last_cc)},
      {"current", static_cast<uint64_t>(a.current_cc)},
      {"elapsed", static_cast<uint64_t>(a.elapsed_ms)},
      {"count", a.count},
      {"pts", a.is_pts},
      {"stamp", a.stamp},
      {"ref", a.ref_pid},
      {"ref_stamp", a.ref_stamp},
      {"pcr_pid", a.pcr_pid},
      {"old_pcr", a.old_pcr},
      {"pcr", a.pcr},
      {"delta", a.delta_ms},
      {"added", a.added},
      {"deleted", a.deleted},
      {"programs", a.programs},
      {"old", a.old_tracks},
      {"new", a.new_tracks},
      {"track", a.track}};
  fprintf(static_cast<FILE *>(out), "%s of %d", tsan_alert_name(a.kind), a.program);
  for (const auto &[name, value] : fields)
    if (value != 0)
      fprintf(static_cast<FILE *>(out), " %s=%lu", name, value);
  fprintf(static_cast<FILE *>(out), " at %s\n", a.ptag);
}

void tell_sample(void *out, const tsan_sample *s) {
  static const char *const kinds[] = {"pcr_interval", "stamp_to_pcr", "audio_to_ref"};
  fprintf(static_cast<FILE *>(out),
          "%s of %d pid=%u pts=%d checked=%d packet=%lu pcr=%lu: %lu ms\n", kinds[s->kind],
          s->program, s->pid, s->is_pts, s->is_checked, s->pkt_idx, s->last_pcr, s->ms);
}

// All that can be heard, or alerts alone.
void listen(engine &e, const operation &op) {
  const bool all = op.has("all");
  const tsan_readout readout = {sizeof readout, e.out, tell_alert, all ? tell_sample : nullptr,
                                all};
  tsan_set_readout(e, &readout);
}

// Counters as after much that happened.
void fill(engine &e, const operation &) {
  e->pg[0].alert = {1, 2, 3, 4, 5, 6, 7, 8};
  e->pg[0].stat = {11, 13, 15, 17};
  e->pg[1].skip_pmt_out = 255;
  e->gac = {1, 2, 3};
}

// What calls the analyzer, once it has the packets made before, or tells the time.
const std::map<std::string, action> calls = {
    {"set", set},
    {"quiet", [](engine &e, const operation &) { e.run(); }},
    {"clock", set_clock},
    {"fill", fill},
    {"unlist_pcr", [](engine &e, const operation &) { e->pg[0].pcr_idx = -1; }},
    {"start", [](engine &e, const operation &) { e.start(); }},
    {"wall", [](engine &, const operation &op) { test_seconds = op.number(); }},
    {"listen", listen},
    {"next_seg", [](engine &e, const operation &) { tsan_next_seg(e); }},
    {"lost_sync", [](engine &e, const operation &) { e.rc = tsan_alert_lostsync(e); }},
    {"pidx", [](engine &e, const operation &op) { tsan_set_pidx(e, op.number<uint64_t>()); }},
    {"ndat", [](engine &e, const operation &) { tsan_check_ndat(e); }},
    {"alerts",
     [](engine &e, const operation &) { write_report(e, std::regex("\t\t[A-Z].*: +[1-9].*")); }},
    {"kinds",
     [](engine &e, const operation &) {
       for (const stream_info &stream : std::span(e->pg[0].stm, e->pg[0].nstreams))
         fputc(stream.stype, e.out);
       fputc('\n', e.out);
     }},
    {"programs",
     [](engine &e, const operation &) { write_report(e, std::regex("\t(---- PRG|\t\\[).*")); }},
    {"held_pat",
     [](engine &e, const operation &) { fputs(e->pat.sec[0] ? "yes\n" : "no\n", e.out); }},
    {"report", [](engine &e, const operation &) { tsan_dump_stats(e.out, e); }},
    {"records", [](engine &e, const operation &) { tsan_alog_stats(e); }},
    {"reset", [](engine &e, const operation &) { tsan_reset_local_stats(e); }},
    {"period", [](engine &e, const operation &) { e.rc = tsan_check_dump_stats(e.out, e); }},
};

void carry_out(std::unique_ptr<engine> &e, const operation &op) {
  if (op.words.at(0) == "new") {
    e.reset(); // before the next one sets the logs up
    e = std::make_unique<engine>();
    e->cfg.no_rlog = !op.has("human");
  } else if (!make_packets(e->s, op)) {
    e->feed();
    for (size_t i = 0; i < op.times; ++i)
      calls.at(op.words[0])(*e, op);
  }
}

// Without what differs from run to run or by processor; a table stands behind its title. Blank
// lines and, of the report, headings, rules and counts of 0 are left out.
std::string shown(std::string text) {
  static const std::pair<std::regex, const char *> masks[] = {
      {std::regex("0x[0-9a-f]{6,}"), "<addr>"},
      {std::regex("-nan"), "nan"},
      {std::regex("(P[AM]T:)\nnew"), "$1 new"},
  };
  static const std::regex left_out(R"(^$|^end P[AM]T$|^tsan_stats|^\t.*:$|^\t-+$|:  +0(/0)*$)");
  for (const auto &[what, word] : masks)
    text = std::regex_replace(text, what, word);
  std::istringstream lines(text);
  std::string out;
  for (std::string line; std::getline(lines, line);)
    if (!std::regex_search(line, left_out))
      out += line + "\n";
  return out;
}

// What the operations make the analyzer write.
std::string written_by(std::unique_ptr<engine> &e, const std::vector<operation> &operations) {
  std::string failed;
  if (e)
    e->rc = 0;
  g_tassert_hook = [](const tassert_failure &failure) { throw failure; };
  try {
    for (const operation &op : operations)
      carry_out(e, op);
    e->feed();
  } catch (const tassert_failure &failure) {
    e->s.packets.clear();
    failed = std::string("assertion: ") + failure.expr + "\n";
  }
  g_tassert_hook = nullptr;
  return shown(e->run()) + failed + (e->rc != 0 ? "= " + std::to_string(e->rc) + "\n" : "");
}

using transcripts = testing::TestWithParam<std::filesystem::path>;

} // namespace

TEST_P(transcripts, are_what_is_written) {
  std::unique_ptr<engine> e;
  expect_transcript(GetParam(), [&](const auto &operations) { return written_by(e, operations); });
}

INSTANTIATE_TEST_SUITE_P(unit, transcripts, testing::ValuesIn(files_in(KORVA_UNIT "/engine")),
                         stem_of);
