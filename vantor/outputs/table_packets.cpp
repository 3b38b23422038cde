#include "outputs/table_packets.h"

#include <algorithm>

namespace {

enum : uint8_t { TABLE_PAT = 0, TABLE_PMT = 2, STUFFING = 0xFF };
enum : size_t { LENGTH_AT = 3, LOOP_AT = 8, PAT_ENTRY = 4, CRC = 4, SECTION_MOST = 1024 };

uint16_t number_at(const std::vector<uint8_t> &bytes, size_t at) {
  return static_cast<uint16_t>(bytes[at] << 8 | bytes[at + 1]);
}

// Of all bytes with their CRC_32: 0 when nothing is damaged (Annex A).
uint32_t crc_of(const std::vector<uint8_t> &bytes) {
  uint32_t crc = UINT32_MAX;
  for (const uint8_t byte : bytes) {
    crc ^= uint32_t{byte} << 24;
    for (int bit = 0; bit < 8; ++bit)
      crc = crc << 1 ^ (crc >> 31 != 0 ? 0x04C11DB7U : 0);
  }
  return crc;
}

// Bytes of a section, as far as its first ones tell.
size_t size_of(const std::vector<uint8_t> &bytes) {
  return bytes.size() < LENGTH_AT ? LENGTH_AT : LENGTH_AT + (number_at(bytes, 1) & 0x0FFFU);
}

} // namespace

void table_packets::take_pat(const std::vector<uint8_t> &pat) {
  const int version = pat[5] >> 1 & 0x1F;
  if (version != pat_version) {
    std::erase_if(whole, [](const auto &item) { return item.first.pid == PID_PAT; });
    pmt_of.clear();
  }
  pat_version = version;
  for (size_t at = LOOP_AT; at + PAT_ENTRY + CRC <= pat.size(); at += PAT_ENTRY)
    if (number_at(pat, at) != 0)
      pmt_of[number_at(pat, at)] = number_at(pat, at + 2) & 0x1FFFU;
  for (const auto &[program, pid] : pmt_of)
    open_on.try_emplace(pid);
}

void table_packets::take(uint32_t pid, const open_section &section) {
  const std::vector<uint8_t> &bytes = section.bytes;
  const bool is_current = bytes.size() >= LOOP_AT + CRC && (bytes[5] & 1) != 0;
  if (!is_current || bytes[0] != (pid == PID_PAT ? TABLE_PAT : TABLE_PMT) || crc_of(bytes) != 0)
    return;
  if (pid == PID_PAT)
    take_pat(bytes);
  whole[{pid, pid == PID_PAT ? uint16_t{0} : number_at(bytes, 3), bytes[6]}] = section.offsets;
}

// Adds to the section that is open what belongs to it.
void table_packets::feed(uint32_t pid, open_section &open, pkt_bytes &bytes, uint64_t offset) {
  if (open.offsets.empty() || open.offsets.back() != offset)
    open.offsets.push_back(offset);
  while (!bytes.empty() && open.bytes.size() < size_of(open.bytes)) {
    const size_t n = std::min(bytes.size(), size_of(open.bytes) - open.bytes.size());
    open.bytes.insert(open.bytes.end(), bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(n));
    bytes = bytes.subspan(n);
  }
  if (size_of(open.bytes) > SECTION_MOST) {
    open.is_open = false;
  } else if (open.bytes.size() > LENGTH_AT && open.bytes.size() == size_of(open.bytes)) {
    open.is_open = false;
    take(pid, open);
  }
}

void table_packets::packet(ts_pkt pkt, uint64_t offset) {
  const uint32_t pid = ts_pid(pkt);
  if (pid == PID_PAT && !open_on.contains(PID_PAT))
    open_on.try_emplace(PID_PAT);
  const auto place = open_on.find(pid);
  pkt_bytes bytes = ts_get_payload(pkt);
  if (place == open_on.end() || bytes.empty() || ts_transport_error(pkt) || ts_is_scrambled(pkt))
    return;
  open_section &open = place->second;
  if (ts_cc(pkt) == open.cc) // the same once more
    return;
  open.is_open = open.is_open && ts_cc(pkt) == ((open.cc + 1) & 15);
  open.cc = ts_cc(pkt);
  if (!ts_unit_start(pkt)) {
    if (open.is_open)
      feed(pid, open, bytes, offset);
    return;
  }
  const size_t pointer = bytes[0];
  bytes = bytes.subspan(1);
  if (pointer > bytes.size())
    return;
  pkt_bytes rest = bytes.first(pointer);
  if (open.is_open)
    feed(pid, open, rest, offset);
  bytes = bytes.subspan(pointer);
  while (!bytes.empty() && bytes[0] != STUFFING) {
    open.bytes.clear();
    open.offsets.clear();
    open.is_open = true;
    feed(pid, open, bytes, offset);
    if (open.is_open || size_of(open.bytes) > SECTION_MOST)
      return;
  }
}

std::vector<uint64_t> table_packets::offsets() const {
  std::vector<uint64_t> out;
  for (const auto &[of, offsets] : whole) {
    const auto listed = pmt_of.find(of.extension);
    if (of.pid == PID_PAT || (listed != pmt_of.end() && listed->second == of.pid))
      out.insert(out.end(), offsets.begin(), offsets.end());
  }
  std::ranges::sort(out);
  out.erase(std::unique(out.begin(), out.end()), out.end());
  return out;
}
