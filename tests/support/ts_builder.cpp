#include "support/ts_builder.h"

#include <algorithm>
#include <span>

#include <bitstream/mpeg/psi/psi.h>

namespace {

constexpr size_t crc_size = 4;

void put16(ts_bytes &out, unsigned value) {
  out.push_back(static_cast<uint8_t>(value >> 8));
  out.push_back(static_cast<uint8_t>(value));
}

// A 13-bit PID behind its reserved bits, all set.
void put_pid(ts_bytes &out, unsigned pid) {
  put16(out, 0xe000U | pid);
}

// Descriptors behind their 12-bit length.
void put_descriptors(ts_bytes &out, const ts_bytes &descriptors) {
  put16(out, 0xf000U | static_cast<unsigned>(descriptors.size()));
  out.insert(out.end(), descriptors.begin(), descriptors.end());
}

ts_bytes section_header(uint8_t table_id, const section_spec &spec) {
  ts_bytes out = {table_id, 0xb0, 0};
  put16(out, spec.id);
  out.push_back(static_cast<uint8_t>(0xc0 | (spec.version & 0x1f) << 1 | (spec.current ? 1 : 0)));
  out.push_back(spec.section);
  out.push_back(spec.last_section);
  return out;
}

// Adds a CRC_32, and writes the length of it all.
ts_bytes finished(ts_bytes section) {
  section.resize(section.size() + crc_size);
  psi_set_length(section.data(), static_cast<uint16_t>(section.size() - PSI_HEADER_SIZE));
  psi_set_crc(section.data());
  return section;
}

// PTS or DTS behind its 4-bit prefix, with the three marker bits.
void put_stamp(ts_bytes &out, unsigned prefix, uint64_t stamp) {
  out.push_back(static_cast<uint8_t>(prefix << 4 | (stamp >> 29 & 0x0e) | 1));
  put16(out, static_cast<unsigned>(stamp >> 14 & 0xfffe) | 1);
  put16(out, static_cast<unsigned>(stamp << 1 & 0xfffe) | 1);
}

ts_bytes pes_bytes(const pes_spec &spec) {
  const unsigned flags = (spec.pts ? 2U : 0U) | (spec.dts ? 1U : 0U);
  ts_bytes out = {0, 0, 1, spec.stream_id, 0, 0, 0x80, static_cast<uint8_t>(flags << 6), 0};
  if (spec.pts)
    put_stamp(out, flags, *spec.pts);
  if (spec.dts)
    put_stamp(out, 1, *spec.dts);
  out[8] = static_cast<uint8_t>(out.size() - 9);
  return out;
}

// The adaptation field, its length byte included.
ts_bytes adaptation_field(const packet_spec &spec, size_t room) {
  const size_t fill = !spec.has_payload ? room - 1 : spec.pcr ? 7 : 0;
  const uint8_t length = spec.af_length.value_or(static_cast<uint8_t>(fill));

  ts_bytes out = {length};
  if (length > 0)
    out.push_back(spec.pcr ? 0x10 : 0);
  if (spec.pcr) {
    put16(out, static_cast<unsigned>(*spec.pcr >> 17));
    put16(out, static_cast<unsigned>(*spec.pcr >> 1));
    put16(out, static_cast<unsigned>(*spec.pcr & 1) << 15 | 0x7e00);
  }
  out.resize(std::min<size_t>(1U + length, room), 0xff);
  return out;
}

} // namespace

ts_bytes pat_section(const std::vector<pat_entry> &entries, const section_spec &spec) {
  ts_bytes out = section_header(0x00, spec);
  for (const pat_entry &entry : entries) {
    put16(out, entry.program);
    put_pid(out, entry.pid);
  }
  return finished(out);
}

ts_bytes pmt_section(const pmt_spec &spec) {
  ts_bytes out = section_header(0x02, {.id = spec.program, .version = spec.version});
  put_pid(out, spec.pcr_pid);
  put_descriptors(out, spec.descriptors);
  for (const es_spec &es : spec.es) {
    out.push_back(es.type);
    put_pid(out, es.pid);
    put_descriptors(out, es.descriptors);
  }
  return finished(out);
}

ts_packet make_packet(uint16_t pid, uint8_t cc, const packet_spec &spec, const ts_bytes &payload) {
  const bool has_field = !spec.has_payload || spec.pcr || spec.af_length;
  ts_packet pkt;
  pkt.fill(0xff);
  pkt[0] = 0x47;
  pkt[1] = static_cast<uint8_t>((spec.unit_start ? 0x40 : 0) | pid >> 8);
  pkt[2] = static_cast<uint8_t>(pid);
  pkt[3] =
      static_cast<uint8_t>((has_field ? 0x20 : 0) | (spec.has_payload ? 0x10 : 0) | (cc & 0x0f));

  auto at = pkt.begin() + 4;
  if (has_field)
    at = std::ranges::copy(adaptation_field(spec, static_cast<size_t>(pkt.end() - at)), at).out;
  if (spec.has_payload)
    std::copy_n(payload.begin(), std::min(pkt.end() - at, std::ssize(payload)), at);
  return pkt;
}

// The counter counts packets with payload; the null packets' is undefined and stays 0.
ts_packet &ts_stream::packet(uint16_t pid, const packet_spec &spec, const ts_bytes &payload) {
  uint8_t cc = 0;
  if (pid != null_pid) {
    uint8_t &next = next_cc[pid];
    cc = static_cast<uint8_t>(spec.has_payload ? next++ : next - 1);
  }
  return packets.emplace_back(make_packet(pid, cc, spec, payload));
}

ts_packet &ts_stream::section(uint16_t pid, const ts_bytes &bytes) {
  ts_bytes payload = {0}; // pointer_field: the section starts right behind it
  payload.insert(payload.end(), bytes.begin(), bytes.end());
  const size_t room = 184;
  for (size_t at = 0; at < payload.size(); at += room) {
    const std::span part = std::span(payload).subspan(at);
    packet(pid, {.unit_start = at == 0}, {part.begin(), part.end()});
  }
  return packets.back();
}

ts_packet &ts_stream::pes(uint16_t pid, const pes_spec &pes, packet_spec spec) {
  spec.unit_start = true;
  return packet(pid, spec, pes_bytes(pes));
}

ts_stream &ts_stream::lose(uint16_t pid, unsigned count) {
  next_cc[pid] = static_cast<uint8_t>(next_cc[pid] + count);
  return *this;
}

ts_bytes ts_stream::bytes() const {
  ts_bytes out;
  for (const ts_packet &pkt : packets)
    out.insert(out.end(), pkt.begin(), pkt.end());
  return out;
}
