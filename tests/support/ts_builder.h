// Builds transport streams for tests, packet by packet:
//
//   ts_stream s;
//   s.pat({{1, 100}});
//   s.pmt(100, {.program = 1, .pcr_pid = 101, .es = {{0x1b, 101}, {0x0f, 102}}});
//   s.pcr(101, 900'000);
//   s.pes(101, {.pts = 903'600});
//   s.data(101);
//   s.lose(101, 3).data(101);                 // a continuity break
//   s.null();
//   s.data(102)[0] = 0x48;                    // any of the 188 bytes can be spoiled
//
// What a builder makes is well formed (ISO/IEC 13818-1) unless the test asks otherwise. Clock
// values are counts of the 90 kHz clock.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <vector>

using ts_packet = std::array<uint8_t, 188>;
using ts_bytes = std::vector<uint8_t>;

// Packet header and adaptation field. The field is there when something in it is asked for.
struct packet_spec {
  bool unit_start = false;
  bool has_payload = true;
  std::optional<uint64_t> pcr = {};      // PCR base, 33 bits; the extension is 0
  std::optional<uint8_t> af_length = {}; // as written, even one past the end
};

struct pat_entry {
  uint16_t program = 1; // 0: network PID
  uint16_t pid = 0;
};

// The version part of a section's header.
struct section_spec {
  uint16_t id = 1; // transport_stream_id or program_number
  uint8_t version = 0;
  bool current = true;
  uint8_t section = 0;
  uint8_t last_section = 0;
};

struct es_spec {
  uint8_t type = 0; // stream_type
  uint16_t pid = 0;
  ts_bytes descriptors = {};
};

struct pmt_spec {
  uint16_t program = 1;
  uint16_t pcr_pid = 0x1fff;
  std::vector<es_spec> es = {};
  ts_bytes descriptors = {};
  uint8_t version = 0;
};

struct pes_spec {
  std::optional<uint64_t> pts = {};
  std::optional<uint64_t> dts = {}; // only together with a PTS
  uint8_t stream_id = 0xe0;
};

// Whole sections, from table_id to a correct CRC_32.
ts_bytes pat_section(const std::vector<pat_entry> &entries, const section_spec &spec = {});
ts_bytes pmt_section(const pmt_spec &spec);

// One packet. A payload shorter than the room behind the adaptation field is followed by 0xff, a
// longer one is cut.
ts_packet make_packet(uint16_t pid, uint8_t cc, const packet_spec &spec, const ts_bytes &payload);

// A stream under construction. Each operation appends one packet (a long section: several) with the
// next continuity counter of its PID and returns the last one, valid until the next is appended.
struct ts_stream {
  std::vector<ts_packet> packets;

  ts_packet &packet(uint16_t pid, const packet_spec &spec = {}, const ts_bytes &payload = {});

  // PSI. A section is cut into as many packets as it takes.
  ts_packet &section(uint16_t pid, const ts_bytes &bytes);
  ts_packet &pat(const std::vector<pat_entry> &entries, const section_spec &spec = {}) {
    return section(pat_pid, pat_section(entries, spec));
  }
  ts_packet &pmt(uint16_t pid, const pmt_spec &spec) { return section(pid, pmt_section(spec)); }

  // Elementary streams: the start of a PES packet, a continuation of one, a PCR without payload.
  ts_packet &pes(uint16_t pid, const pes_spec &pes = {}, packet_spec spec = {});
  ts_packet &data(uint16_t pid, const packet_spec &spec = {}) { return packet(pid, spec); }
  ts_packet &pcr(uint16_t pid, uint64_t base) {
    return packet(pid, {.has_payload = false, .pcr = base});
  }
  ts_packet &null() { return packet(null_pid); }

  // The last packet once more, byte by byte.
  ts_packet &repeat() { return packets.emplace_back(ts_packet(packets.back())); }
  // `count` packets of the PID get lost: its counter goes on without them.
  ts_stream &lose(uint16_t pid, unsigned count = 1);

  ts_bytes bytes() const;

private:
  enum : uint16_t { pat_pid = 0, null_pid = 0x1fff };
  std::map<uint16_t, uint8_t> next_cc;
};
