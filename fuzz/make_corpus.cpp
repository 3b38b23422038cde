// Writes the seeds of the stream target: make_corpus DIR
//
// Each seed is a small stream of the kind its name tells; together they reach every alert and every
// assertion that a stream can fail.

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include <bitstream/mpeg/psi.h>

#include "support/ts_builder.h"

namespace {

std::filesystem::path g_dir;

struct seed_settings {
  uint8_t checks = 0x8e; // all checks on
  uint8_t traces = 0;    // all traces on
  uint8_t max_ndat_pcount = 5;
  uint8_t per_dgram = 0;
};

void write_seed(const std::string &name, const ts_stream &stream, const seed_settings &set = {}) {
  std::ofstream file(g_dir / name, std::ios::binary);
  const char head[] = {static_cast<char>(set.checks), static_cast<char>(set.traces),
                       static_cast<char>(set.max_ndat_pcount), static_cast<char>(set.per_dgram)};
  file.write(head, sizeof head);
  const ts_bytes bytes = stream.bytes();
  file.write(reinterpret_cast<const char *>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
}

pmt_spec av_pmt(uint16_t program, uint16_t first_pid) {
  const auto pid = [first_pid](int n) { return static_cast<uint16_t>(first_pid + n); };
  return {.program = program,
          .pcr_pid = pid(0),
          .es = {{0x1b, pid(0)}, {0x0f, pid(1), {0x0a, 4, 'e', 'n', 'g', 0}}, {0x06, pid(2)}}};
}

// One program of three streams.
ts_stream tables() {
  ts_stream s;
  s.pat({{1, 100}});
  s.pmt(100, av_pmt(1, 101));
  return s;
}

ts_stream programme(uint64_t audio_offset = 0) {
  ts_stream s = tables();
  for (uint64_t t = 900'000; t < 900'000 + 10 * 3600; t += 3600) {
    s.pcr(101, t - 9000);
    s.pes(101, {.pts = t, .dts = t});
    s.data(101);
    s.pes(102, {.pts = t + audio_offset, .dts = t + audio_offset, .stream_id = 0xc0});
    s.data(102);
    s.pes(103, {.pts = t, .stream_id = 0xbd});
    s.null();
  }
  return s;
}

void write_alerts() {
  write_seed("programme", programme());
  write_seed("av_delta0", programme(50));
  write_seed("av_delta_plus", programme(90'000));
  write_seed("pcr_delta", programme(180'000));

  ts_stream late_pcr = tables();
  for (uint64_t t : {900'000u, 903'600u, 917'100u, 917'000u})
    late_pcr.pcr(101, t);
  late_pcr.pcr(101, 0x1'ffff'ff00);
  late_pcr.pcr(101, 0x100);
  write_seed("pcr_freq", late_pcr);

  ts_stream lost = programme();
  lost.lose(101, 2).data(101);
  lost.lose(102, 2).data(102);
  lost.data(102);
  lost.repeat();
  write_seed("cc_break", lost);

  ts_stream restarts = tables();
  for (int round = 0; round < 3; ++round) {
    restarts.data(101);
    restarts.data(101);
    restarts.packets.back()[3] &= 0xf0; // the counter of this packet only
    restarts.lose(101, 3);
  }
  write_seed("cc_reset", restarts);

  ts_stream dgrams = tables();
  for (int n = 0; n < 4; ++n) {
    dgrams.data(101);
    dgrams.data(102);
  }
  for (int n = 0; n < 3; ++n) {
    dgrams.lose(101, 2).data(101);
    dgrams.lose(102, 2).data(102);
  }
  write_seed("cc_multi_loss", dgrams, {.per_dgram = 2});

  ts_stream changes = programme();
  pmt_spec pmt = av_pmt(1, 101);
  pmt.version = 1;
  pmt.es.push_back({0x81, 104});
  changes.pmt(100, pmt);
  changes.pat({{1, 100}, {2, 200}}, {.version = 1});
  changes.pmt(200, av_pmt(2, 201));
  changes.data(201);
  changes.pat({{2, 200}, {0, 16}}, {.version = 2});
  changes.data(101);
  write_seed("table_changes", changes);

  ts_stream sdt = programme();
  sdt.section(17, pat_section({{1, 100}}));
  sdt.data(300);
  write_seed("sdt_and_others", sdt, {.checks = 0x00});
  write_seed("disabled", sdt, {.checks = 0xff, .traces = 0xff});
}

std::vector<pat_entry> many_programs(uint16_t first_pid, size_t count) {
  std::vector<pat_entry> entries;
  for (size_t i = 0; i < count; ++i)
    entries.push_back({static_cast<uint16_t>(i + 1), static_cast<uint16_t>(first_pid + i)});
  return entries;
}

void write_assertions() {
  ts_stream pid0, empty, no_pcr, too_many;
  pid0.pat({{1, 0}});
  write_seed("assert_pmt_pid_0", pid0);
  empty.pat({});
  write_seed("assert_empty_pat", empty);
  no_pcr.pat({{1, 100}});
  no_pcr.pmt(100, {.pcr_pid = 0, .es = {{0x1b, 101}}});
  write_seed("assert_pcr_pid_0", no_pcr);
  too_many.pat({{1, 100}});
  too_many.pat(many_programs(200, 32), {.version = 1});
  write_seed("assert_too_many_programs", too_many);
}

void write_hostile() {
  ts_stream sections;
  sections.pat(many_programs(200, 20), {.last_section = 1});
  sections.pat(many_programs(300, 20), {.section = 1, .last_section = 1});
  sections.pmt(200, av_pmt(1, 101));
  sections.pat(many_programs(200, 20), {.last_section = 2});
  sections.pat({{1, 100}}, {.section = 200, .last_section = 0});
  sections.pat({{1, 100}}, {.section = 0, .last_section = 255});
  write_seed("many_sections", sections);

  // Descriptors on which a walk in 8 bits stands still.
  const ts_bytes endless[] = {{0x45, 2, 1, 0xfe},
                              {0x51, 5, 0, 0, 0, 0xfc, 0},
                              {0x5b, 4, 'e', 'n', 'g', 0xfc},
                              {0x5c, 4, 'e', 'n', 'g', 0xfc},
                              {0x5d, 5, 'e', 'n', 'g', 0xfb, 0},
                              {0x5e, 5, 0, 'e', 'n', 'g', 0xfc},
                              {0x6c, 10, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xf6},
                              {0x6d, 7, 0, 0, 0, 0, 0, 0, 0xf9}};
  ts_stream descriptors;
  descriptors.pat({{1, 100}});
  uint8_t version = 0;
  for (const ts_bytes &bytes : endless)
    descriptors.pmt(100, {.pcr_pid = 101, .es = {{0x1b, 101, bytes}}, .version = version++});
  // Endless only once the length of the stream behind it has been cut.
  ts_bytes cut = pmt_section({.pcr_pid = 101,
                              .es = {{0x1b, 101}, {0x0f, 102, {0}}, {0x0f, 103}},
                              .descriptors = {0x5d, 1, 0}});
  cut[29] = 0xf1;
  descriptors.section(100, cut);
  write_seed("endless_descriptors", descriptors);

  ts_stream text;
  text.pat({{1, 100}});
  for (uint8_t tag = 0x40; tag < 0x80; ++tag)
    text.pmt(100, {.pcr_pid = 101,
                   .es = {{0x1b, 101, {tag, 12, 1, 2, 3, 'e', 'n', 'g', 4, 'T', 'e', 'x', 't', 0}}},
                   .version = static_cast<uint8_t>(tag & 31)});
  write_seed("descriptor_tags", text);
}

// Any section with a PAT's header, which need not be one.
ts_bytes section_of(uint8_t table_id, const section_spec &spec = {}) {
  ts_bytes bytes = pat_section({{1, 100}, {2, 200}}, spec);
  bytes[0] = table_id;
  psi_set_crc(bytes.data());
  return bytes;
}

ts_packet &set(ts_packet &pkt, size_t at, uint8_t bits) {
  pkt[at] |= bits;
  return pkt;
}

// Three seconds of everything that an audit reads, in each of its profiles and packet sizes.
ts_stream capture() {
  const ts_bytes ca = {9, 4, 0, 1, 0xe1, 0x90},
                 subtitles = {0x59, 8, 'e', 'n', 'g', 0x10, 0, 1, 0, 1};
  ts_stream s;
  for (uint64_t t = 900'000; t < 900'000 + 30 * 9000; t += 9000) {
    s.pat({{0, 16}, {1, 100}, {2, 200}});
    s.pmt(100, av_pmt(1, 101));
    s.pmt(200, {.program = 2, .pcr_pid = 201, .es = {{2, 201, ca}, {6, 202, subtitles}}});
    s.section(1, section_of(1));
    s.section(16, section_of(0x40));
    s.section(17, section_of(0x42));
    s.section(18, section_of(0x4e, {.section = static_cast<uint8_t>(t / 9000 % 2)}));
    s.section(20, section_of(0x70));
    s.pcr(101, t - 9000);
    s.pcr(201, t + 90'000'000);
    s.pes(101, {.pts = t + 3600, .dts = t});
    s.pes(102, {.pts = t, .stream_id = 0xc0});
    set(s.data(201), 3, 0x80); // scrambled
    s.null();
  }
  return s;
}

void write_audit() {
  for (uint8_t profile = 0; profile < 4; ++profile)
    write_seed("audit_" + std::to_string(profile), capture(),
               {.checks = static_cast<uint8_t>(profile | profile << 3)});
  ts_stream faults = capture();
  set(faults.data(101), 1, 0x80); // transport_error_indicator
  faults.lose(101, 3).data(101);
  faults.repeat();
  faults.repeat();
  faults.data(102)[3] &= 0xcf; // adaptation_field_control 00
  faults.packet(102, {.af_length = 250});
  faults.pat({{1, 100}}, {.version = 1});
  for (size_t i = 40; i < faults.packets.size(); i += 41)
    faults.packets[i][0] = 0;
  write_seed("audit_framing", faults, {.checks = 4});
}

} // namespace

int main(int argc, char **argv) {
  if (argc != 2) {
    fprintf(stderr, "Usage: %s DIR\n", argv[0]);
    return 1;
  }
  g_dir = argv[1];
  std::filesystem::create_directories(g_dir);
  write_alerts();
  write_assertions();
  write_hostile();
  write_audit();
  return 0;
}
