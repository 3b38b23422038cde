// The transcripts in engine/: what the analyzer writes about streams that are made packet by
// packet.
//
// A line that begins with "$ " holds operations, separated by ";". Below it is what they made the
// analyzer write (of its report only what is not 0), and "= n" for a result other than 0. With
// KORVA_ACCEPT in the environment, the transcripts are written anew.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <optional>
#include <regex>
#include <span>
#include <sstream>

#include <gtest/gtest.h>

#include "support/engine.h"
#include "tassert/tassert.h"
#include "tsanalyze/readout.h"

namespace {

// As "pes 102 pts=900000 x2": words, named values, and how often.
struct operation {
  std::vector<std::string> words;
  std::map<std::string, std::string> named;
  size_t times = 1;

  explicit operation(const std::string &text) {
    std::istringstream in(text);
    for (std::string word; in >> word;)
      if (const size_t equals = word.find('='); equals != word.npos)
        named[word.substr(0, equals)] = word.substr(equals + 1);
      else if (word[0] == 'x')
        times = std::stoul(word.substr(1));
      else
        words.push_back(word);
  }
  bool has(const char *word) const { return std::ranges::count(words, word) != 0; }
  template <typename T = uint16_t> T number(size_t i = 1) const {
    return static_cast<T>(std::stoull(words.at(i), nullptr, 0));
  }
  std::string get(const std::string &name) const {
    const auto found = named.find(name);
    return found != named.end() ? found->second : "";
  }
  template <typename T> std::optional<T> get(const char *name) const {
    if (!named.contains(name))
      return {};
    return static_cast<T>(std::stoull(named.at(name), nullptr, 0));
  }
  template <typename T> T get(const char *name, T otherwise) const {
    return get<T>(name).value_or(otherwise);
  }
};

using action = void (*)(engine &, const operation &);

ts_bytes from_hex(const std::string &text) {
  ts_bytes out;
  for (size_t i = 0; i < text.size(); i += 2)
    out.push_back(static_cast<uint8_t>(std::stoul(text.substr(i, 2), nullptr, 16)));
  return out;
}

packet_spec packet_of(const operation &op) {
  return {op.has("start"), !op.has("empty"), op.get<uint64_t>("pcr"), op.get<uint8_t>("af")};
}

// Programs are "1:100" (number, PID) or "31*100" (so many, from this PID on).
void add_pat(engine &e, const operation &op) {
  std::vector<pat_entry> entries;
  uint16_t n = 0, pid = 0;
  for (const std::string &word : op.words)
    if (std::sscanf(word.c_str(), "%hu:%hu", &n, &pid) == 2)
      entries.push_back({n, pid});
    else if (std::sscanf(word.c_str(), "%hu*%hu", &n, &pid) == 2)
      for (uint16_t i = 0; i < n; ++i)
        entries.push_back({1, static_cast<uint16_t>(pid + i)});
  e.s.pat(entries, {.version = op.get<uint8_t>("version", 0),
                    .current = !op.has("next"),
                    .section = op.get<uint8_t>("section", 0),
                    .last_section = op.get<uint8_t>("last", 0)});
}

// Streams are "0f:102" (type, PID) or, with descriptors, "0f:102:0a04656e6700".
void add_pmt(engine &e, const operation &op) {
  pmt_spec spec = {.pcr_pid = op.get<uint16_t>("pcr", 101),
                   .descriptors = from_hex(op.get("descriptors"))};
  for (const std::string &word : op.words) {
    es_spec es;
    char hex[400] = "";
    if (std::sscanf(word.c_str(), "%hhx:%hu:%399s", &es.type, &es.pid, hex) >= 2) {
      es.descriptors = from_hex(hex);
      spec.es.push_back(es);
    }
  }
  e.s.pmt(op.number(), spec);
}

void add_pes(engine &e, const operation &op) {
  const auto id = op.get<uint8_t>("id", 0xe0);
  const pes_spec pes = {op.get<uint64_t>("pts"), op.get<uint64_t>("dts"), id};
  e.s.pes(op.number(), pes, packet_of(op));
}

// Packets with these continuity counters.
void add_counters(engine &e, const operation &op) {
  for (size_t i = 2; i < op.words.size(); ++i)
    e.s.packets.push_back(make_packet(op.number(), op.number<uint8_t>(i), {}, {}));
}

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

// What a program that embeds the analyzer hears of an alert.
void tell(void *out, const tsan_alert *alert) {
  fprintf(static_cast<FILE *>(out), "%s packet=%lu count=%zu\n", tsan_alert_name(alert->kind),
          alert->pkt_idx, alert->count);
}

// Counters as after much that happened.
void fill(engine &e, const operation &) {
  e->pg[0].alert = {1, 2, 3, 4, 5, 6, 7, 8};
  e->pg[0].stat = {11, 12, 13, 14, 15, 16, 17, 18};
  e->pg[1].skip_pmt_out = 255;
  e->gac = {1, 2, 3};
}

// What makes packets or changes those to come; "spoil 5 f0" overwrites the last one from byte 5 on.
const std::map<std::string, action> makers = {
    {"pat", add_pat},
    {"pmt", add_pmt},
    {"pes", add_pes},
    {"cc", add_counters},
    {"data", [](engine &e, const operation &op) { e.s.packet(op.number(), packet_of(op)); }},
    {"pcr", [](engine &e, const operation &op) { e.s.pcr(op.number(), op.number<uint64_t>(2)); }},
    {"null", [](engine &e, const operation &) { e.s.null(); }},
    {"repeat", [](engine &e, const operation &) { e.s.repeat(); }},
    {"lose", [](engine &e, const operation &op) { e.s.lose(op.number(), op.number(2)); }},
    {"spoil",
     [](engine &e, const operation &op) {
       std::ranges::copy(from_hex(op.words.at(2)), &e.s.packets.back()[op.number()]);
     }},
};

// What calls the analyzer, once it has the packets made before, or tells the time.
const std::map<std::string, action> calls = {
    {"set", set},
    {"quiet", [](engine &e, const operation &) { e.run(); }},
    {"clock", set_clock},
    {"fill", fill},
    {"unlist_pcr", [](engine &e, const operation &) { e->pg[0].pcr_idx = -1; }},
    {"start", [](engine &e, const operation &) { e.start(); }},
    {"wall", [](engine &, const operation &op) { test_seconds = op.number(); }},
    {"listen",
     [](engine &e, const operation &) {
       const tsan_readout readout = {sizeof readout, e.out, tell, nullptr, false};
       tsan_set_readout(e, &readout);
     }},
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
  const std::string &name = op.words.at(0);
  if (name == "new") {
    e.reset(); // before the next one sets the logs up
    e = std::make_unique<engine>();
    e->cfg.no_rlog = !op.has("human");
    return;
  }
  const bool is_maker = makers.contains(name);
  if (!is_maker)
    e->feed();
  for (size_t i = 0; i < op.times; ++i)
    (is_maker ? makers : calls).at(name)(*e, op);
}

// What the operations of a line make the analyzer write, behind what else is told on standard
// error.
std::string written_by(std::unique_ptr<engine> &e, const std::string &line) {
  std::istringstream operations(line);
  std::string failed;
  if (e)
    e->rc = 0;
  testing::internal::CaptureStderr();
  g_tassert_hook = [](const tassert_failure &failure) { throw failure; };
  try {
    for (std::string op; std::getline(operations, op, ';');)
      carry_out(e, operation(op));
    e->feed();
  } catch (const tassert_failure &failure) {
    e->s.packets.clear();
    failed = std::string("assertion: ") + failure.expr + "\n";
  }
  g_tassert_hook = nullptr;
  return testing::internal::GetCapturedStderr() + e->run() + failed +
         (e->rc != 0 ? "= " + std::to_string(e->rc) + "\n" : "");
}

using transcripts = testing::TestWithParam<std::filesystem::path>;

} // namespace

// Blank lines and, of the report, headings, rules and counts of 0.
static const std::regex left_out(R"(^$|^end P[AM]T$|^tsan_stats|^\t.*:$|^\t-+$|:  +0(/0)*$)");

// Without what differs from run to run or by processor; a table stands behind its title.
static std::string shown(std::string text) {
  static const std::pair<std::regex, const char *> masks[] = {
      {std::regex("0x[0-9a-f]{6,}"), "<addr>"},
      {std::regex("-nan"), "nan"},
      {std::regex("(P[AM]T:)\nnew"), "$1 new"},
  };
  for (const auto &[what, word] : masks)
    text = std::regex_replace(text, what, word);
  return text;
}

TEST_P(transcripts, are_what_is_written) {
  std::ifstream file(GetParam());
  std::string expected, actual;
  std::unique_ptr<engine> e;
  for (std::string line; std::getline(file, line);) {
    expected += line + "\n";
    if (line.empty() || line.starts_with("$ ") || line.starts_with("#"))
      actual += line + "\n";
    if (!line.starts_with("$ "))
      continue;
    std::istringstream written(shown(written_by(e, line.substr(2))));
    for (std::string text; std::getline(written, text);)
      if (!std::regex_search(text, left_out))
        actual += text + "\n";
  }
  if (getenv("KORVA_ACCEPT"))
    std::ofstream(GetParam()) << actual;
  EXPECT_EQ(actual, expected);
}

static std::vector<std::filesystem::path> files() {
  std::vector<std::filesystem::path> out;
  for (const auto &file : std::filesystem::directory_iterator(KORVA_UNIT "/engine"))
    out.push_back(file);
  return out;
}

INSTANTIATE_TEST_SUITE_P(unit, transcripts, testing::ValuesIn(files()),
                         [](const auto &file) { return file.param.stem().string(); });
