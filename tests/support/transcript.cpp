#include "support/transcript.h"

#include <fstream>

namespace {

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
void add_pat(ts_stream &s, const operation &op) {
  std::vector<pat_entry> entries;
  uint16_t n = 0, pid = 0;
  for (const std::string &word : op.words)
    if (std::sscanf(word.c_str(), "%hu:%hu", &n, &pid) == 2)
      entries.push_back({n, pid});
    else if (std::sscanf(word.c_str(), "%hu*%hu", &n, &pid) == 2)
      for (uint16_t i = 0; i < n; ++i)
        entries.push_back({1, static_cast<uint16_t>(pid + i)});
  s.pat(entries, {.version = op.get<uint8_t>("version", 0),
                  .current = !op.has("next"),
                  .section = op.get<uint8_t>("section", 0),
                  .last_section = op.get<uint8_t>("last", 0)});
}

// Streams are "0f:102" (type, PID) or, with descriptors, "0f:102:0a04656e6700".
void add_pmt(ts_stream &s, const operation &op) {
  pmt_spec spec = {.pcr_pid = op.get<uint16_t>("pcr", 101),
                   .descriptors = from_hex(op.get("descriptors")),
                   .version = op.get<uint8_t>("version", 0)};
  for (const std::string &word : op.words) {
    es_spec es;
    char hex[400] = "";
    if (std::sscanf(word.c_str(), "%hhx:%hu:%399s", &es.type, &es.pid, hex) >= 2) {
      es.descriptors = from_hex(hex);
      spec.es.push_back(es);
    }
  }
  s.pmt(op.number(), spec);
}

void add_pes(ts_stream &s, const operation &op) {
  const auto id = op.get<uint8_t>("id", 0xe0);
  const pes_spec pes = {op.get<uint64_t>("pts"), op.get<uint64_t>("dts"), id};
  s.pes(op.number(), pes, packet_of(op));
}

// Packets with these continuity counters.
void add_counters(ts_stream &s, const operation &op) {
  for (size_t i = 2; i < op.words.size(); ++i)
    s.packets.push_back(make_packet(op.number(), op.number<uint8_t>(i), {}, {}));
}

const std::map<std::string, void (*)(ts_stream &, const operation &)> makers = {
    {"pat", add_pat},
    {"pmt", add_pmt},
    {"pes", add_pes},
    {"cc", add_counters},
    {"data", [](ts_stream &s, const operation &op) { s.packet(op.number(), packet_of(op)); }},
    {"pcr", [](ts_stream &s, const operation &op) { s.pcr(op.number(), op.number<uint64_t>(2)); }},
    {"null", [](ts_stream &s, const operation &) { s.null(); }},
    {"repeat", [](ts_stream &s, const operation &) { s.repeat(); }},
    {"lose", [](ts_stream &s, const operation &op) { s.lose(op.number(), op.number(2)); }},
    {"spoil",
     [](ts_stream &s, const operation &op) {
       std::ranges::copy(from_hex(op.words.at(2)), &s.packets.back()[op.number()]);
     }},
};

std::vector<operation> operations_in(const std::string &line) {
  std::vector<operation> out;
  std::istringstream in(line);
  for (std::string text; std::getline(in, text, ';');)
    out.emplace_back(text);
  return out;
}

} // namespace

bool make_packets(ts_stream &s, const operation &op) {
  const auto maker = makers.find(op.words.at(0));
  for (size_t i = 0; maker != makers.end() && i < op.times; ++i)
    maker->second(s, op);
  return maker != makers.end();
}

void expect_transcript(const std::filesystem::path &path, const player &play) {
  std::ifstream file(path);
  std::string expected, actual;
  for (std::string line; std::getline(file, line);) {
    expected += line + "\n";
    if (line.empty() || line.starts_with("$ ") || line.starts_with("#"))
      actual += line + "\n";
    if (line.starts_with("$ "))
      actual += play(operations_in(line.substr(2)));
  }
  if (getenv("KORVA_ACCEPT"))
    std::ofstream(path) << actual;
  EXPECT_EQ(actual, expected);
}

std::vector<std::filesystem::path> files_in(const char *directory) {
  std::vector<std::filesystem::path> out;
  for (const auto &file : std::filesystem::directory_iterator(directory))
    out.push_back(file);
  return out;
}

std::string stem_of(const testing::TestParamInfo<std::filesystem::path> &file) {
  return file.param.stem().string();
}
