// A recording that is damaged on purpose: each damage raises the alerts that expected/damage.txt
// counts from what was done, and no other; undamaged, it raises none with the same options.
//
// Packet numbers are those of samples/clean.ts, from 1.
#include <algorithm>
#include <cstring>
#include <fstream>
#include <map>

#include <fnmatch.h>

#include "cli/korva.h"
#include "support/ts_builder.h"

namespace {

using packets = std::vector<ts_packet>;

constexpr uint64_t clock_period = 1ULL << 33;

packets clean() {
  const std::string bytes = read_file(KORVA_SAMPLES "/clean.ts");
  packets out(bytes.size() / 188);
  std::memcpy(out.data(), bytes.data(), out.size() * 188);
  return out;
}

std::string text_of(const packets &stream) {
  return {reinterpret_cast<const char *>(stream.data()), stream.size() * 188};
}

unsigned pid(const ts_packet &p) {
  return (p[1] & 0x1fU) << 8 | p[2];
}

std::array<uint64_t, 5> wide(const uint8_t *b) {
  return {b[0], b[1], b[2], b[3], b[4]};
}

// One PTS or DTS; its prefix is kept.
void shift_stamp(uint8_t *b, uint64_t by) {
  const auto w = wide(b);
  const uint64_t stamp = (w[0] & 14) << 29 | w[1] << 22 | w[2] >> 1 << 15 | w[3] << 7 | w[4] >> 1;
  const ts_bytes made = pes_bytes({.pts = (stamp + by) % clock_period});
  b[0] = static_cast<uint8_t>((b[0] & 0xf0) | (made[9] & 0x0f));
  std::copy_n(&made[10], 4, b + 1);
}

void shift_clocks(ts_packet &p, uint64_t by) {
  const auto w = wide(&p[6]);
  const uint64_t pcr = w[0] << 25 | w[1] << 17 | w[2] << 9 | w[3] << 1 | w[4] >> 7;
  const ts_packet made = make_packet(0, 0, {.pcr = (pcr + by) % clock_period}, {});
  if ((p[3] & 0x20) && p[4] > 0 && (p[5] & 0x10))
    std::copy_n(&made[6], 6, &p[6]);
  uint8_t *pes = &p[(p[3] & 0x20) ? 5U + p[4] : 4U];
  const bool is_pes = (p[1] & 0x40) && pes[0] == 0 && pes[1] == 0 && pes[2] == 1;
  if (is_pes && (pes[7] & 0x80))
    shift_stamp(pes + 9, by);
  if (is_pes && (pes[7] & 0x40))
    shift_stamp(pes + 14, by);
}

// The counter of PID 258 begins again at 0 in two places.
void restart_counter_twice(packets &s) {
  for (const size_t first : {472U, 863U})
    for (size_t i = first - 1, by = s[i][3] & 0x0fU; i < s.size(); ++i)
      if (pid(s[i]) == 258)
        s[i][3] = static_cast<uint8_t>((s[i][3] & 0xf0U) | ((s[i][3] - by) & 0x0fU));
}

// Changes the section in each packet of the PID from the packet on.
void change_section(packets &s, size_t first, unsigned its_pid, void (*change)(ts_bytes &)) {
  for (size_t i = first - 1; i < s.size(); ++i)
    if (uint8_t *section = &s[i][5]; pid(s[i]) == its_pid) {
      ts_bytes changed(section, section + 3 + section[2]);
      change(changed);
      seal_section(changed);
      std::ranges::copy(changed, section);
    }
}

const std::map<std::string, void (*)(packets &)> damages = {
    {"packets lost on one PID", [](packets &s) { s.erase(s.begin() + 902, s.begin() + 904); }},
    {"packets lost on five PIDs", [](packets &s) { s.erase(s.begin() + 832, s.begin() + 852); }},
    {"packets repeated on three PIDs",
     [](packets &s) {
       for (const int number : {834, 823, 821})
         s.insert(s.begin() + number, ts_packet(s.begin()[number - 1]));
     }},
    {"counter restarted twice", restart_counter_twice},
    {"audio 200 ms early",
     [](packets &s) {
       for (ts_packet &p : s)
         if (pid(p) == 258)
           shift_clocks(p, clock_period - 200 * 90);
     }},
    {"PCRs lost for 150 ms", // they come every 80 ms, so two get lost
     [](packets &s) { s[839][5] &= 0xef, s[873][5] &= 0xef; }},
    {"all clocks wrap",
     [](packets &s) {
       for (ts_packet &p : s)
         shift_clocks(p, clock_period - 250'000);
     }},
    {"track that never comes",
     [](packets &s) { std::erase_if(s, [](const ts_packet &p) { return pid(p) == 259; }); }},
    {"PMT with a new version",
     [](packets &s) { change_section(s, 573, 4097, [](ts_bytes &pmt) { pmt[5] ^= 0x02; }); }},
    {"PMT announces a track that never comes",
     [](packets &s) {
       change_section(s, 572, 4096, [](ts_bytes &pmt) {
         pmt.insert(pmt.end() - 4, {0x0f, 0xe1, 0x04, 0xf0, 0x00}); // AAC on PID 260
       });
     }},
    {"PAT gains one program and loses another",
     [](packets &s) {
       change_section(s, 531, 0, [](ts_bytes &pat) {
         pat = pat_section({{1, 4096}, {3, 4098}}, {.version = 1});
       });
     }},
};

size_t matches(const std::string &text, const std::string &pattern) {
  const std::string glob = replace_all(pattern, "[", "[[]"); // brackets stand for themselves
  const auto match = [&](const std::string &line) {
    return !fnmatch(glob.c_str(), line.c_str(), 0);
  };
  return static_cast<size_t>(std::ranges::count_if(lines_of(text), match));
}

run_result run_on(const packets &stream, words args) {
  const temp_dir dir;
  std::ofstream(dir.file("stream.ts"), std::ios::binary) << text_of(stream);
  std::ofstream(dir.file("ndat.cfg")) << "vnt: { stream_analyzer: { enabled = true;"
                                         " max_pdts_delta_ms = 0; max_ndat_pcount = 200; }; };";
  args.insert(args.end(), {"-a", "on", "-S", "x", "stream.ts"});
  return korva(args, {.cwd = dir.path});
}

} // namespace

TEST(damage, raises_its_alerts_and_no_others) {
  for (const test_case &c : table("damage.txt")) {
    SCOPED_TRACE(c.lines.at(0));
    packets stream = clean();
    const run_result silent = run_on(stream, c.args);
    EXPECT_EQ(silent.out, "\n");
    EXPECT_EQ(lines_with(silent.err, "(WRN)"), words{});

    words wanted;
    for (const std::string &line : c.lines)
      if (line.starts_with("damage "))
        damages.at(line.substr(7))(stream);
      else
        wanted.push_back(line);
    const run_result r = run_on(stream, c.args);
    EXPECT_EQ(r.status, 0);
    size_t total = 0;
    for (const std::string &line : wanted) {
      const size_t count = std::stoul(line);
      const std::string pattern = line.substr(line.find(' ') + 1);
      EXPECT_EQ(matches(r.out + r.err, "<time> " + pattern), count) << pattern;
      total += pattern.starts_with("<pid>") ? count : 0;
    }
    EXPECT_EQ(lines_of(r.out).size(), total + 1) << r.out;
    EXPECT_EQ(lines_with(r.err, "  ALERT ").size(), total) << r.err;
  }
}

// A jump to 0 is a reset if it comes long enough after the one before: here the writer waits.
TEST(damage, counter_restarted_after_a_pause) {
  const temp_dir dir;
  mkfifo(dir.file("pipe").c_str(), 0600);
  packets stream = clean();
  restart_counter_twice(stream);
  const auto pause = stream.begin() + 500;

  const words args = {"-a", "on", "-S", "x", "-A", "max_zreset_time=300", "pipe"};
  const running program = start_korva(args, {.cwd = dir.path});
  std::ofstream pipe(dir.file("pipe"));
  pipe << text_of({stream.begin(), pause}) << std::flush;
  const std::string first = mask(read_until(program.out, "\n"));
  EXPECT_EQ(matches(first, "<time> <pid>  ALERT CC-BRK x 258 0 4 0 0:1[472]:*"), 1U) << first;
  usleep(400'000);
  pipe << text_of({pause, stream.end()});
  pipe.close();

  const run_result r = masked(finish(program));
  long ms = 0;
  char tag[64] = "";
  std::sscanf(r.out.c_str(), "<time> <pid>  ALERT CC-RST x 258 0 9 0 %ld %63s", &ms, tag);
  const std::string behind = std::to_string(ms) + " " + tag;
  EXPECT_EQ(r.out, "<time> <pid>  ALERT CC-RST x 258 0 9 0 " + behind + "\n\n");
  EXPECT_GE(ms, 400);
  EXPECT_TRUE(std::string(tag).starts_with("0:1[863]:")) << tag;
  EXPECT_EQ(
      lines_with(r.err, "CC-RST [x]"),
      words{"<time> (WRN)  FSCN  ALERT CC-RST [x] dgram:0 last/current=9/0 pid=258 delta_ms=" +
            replace_all(behind, " ", " at ")});
}
