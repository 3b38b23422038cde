#include "outputs/survey.h"

#include <algorithm>
#include <utility>

namespace {

enum : size_t { SECTION_HEADER = 8, PAT_ENTRY = 4, PMT_HEADER = 12, ES_HEADER = 5, CRC = 4 };
enum : uint8_t { TABLE_PAT = 0, TABLE_PMT = 2 };

// A section, as far as its first packet holds it, without its CRC.
struct section {
  pkt_bytes bytes;
  bool is_pointed = false;
};

section section_in(ts_pkt pkt, uint8_t table_id) {
  const pkt_bytes payload = ts_get_payload(pkt);
  if (!ts_unit_start(pkt) || payload.empty())
    return {};
  const size_t begin = 1 + size_t{payload[0]};
  if (begin + SECTION_HEADER > payload.size() || payload[begin] != table_id)
    return {};
  const pkt_bytes bytes = payload.subspan(begin);
  const size_t size = 3 + (bytes[1] & size_t{0x0F}) * 256 + bytes[2];
  return {bytes.first(std::min(bytes.size(), size < CRC ? 0 : size - CRC)), begin != 1};
}

uint16_t number_at(pkt_bytes bytes, size_t at) {
  return static_cast<uint16_t>(bytes[at] << 8 | bytes[at + 1]);
}

// FNV-1a.
uint64_t digest_of(pkt_bytes bytes) {
  uint64_t digest = 0xCBF29CE484222325;
  for (const uint8_t byte : bytes)
    digest = (digest ^ byte) * 0x100000001B3;
  return digest;
}

bool is_new(uint64_t &digest, ts_pkt pkt) {
  const uint64_t now = digest_of(ts_get_payload(pkt));
  return std::exchange(digest, now) != now;
}

} // namespace

void survey::list(uint16_t pid, uint16_t program_number) {
  if (slot_of[pid] == NONE) {
    if (used == slots.size())
      return;
    slot_of[pid] = static_cast<uint8_t>(used);
    slots[used++].pid = pid;
  }
  slots[slot_of[pid]].program_number = program_number;
}

bool survey::pat(ts_pkt pkt) {
  ++pat_packets;
  if (ts_is_scrambled(pkt)) {
    ++pat_scrambled;
    return false;
  }
  const section pat = section_in(pkt, TABLE_PAT);
  if (pat.bytes.empty())
    return false;
  ++pats;
  if (!is_new(pat_digest, pkt))
    return false;
  for (size_t at = SECTION_HEADER; at + PAT_ENTRY <= pat.bytes.size(); at += PAT_ENTRY)
    list(number_at(pat.bytes, at + 2) & 0x1FFF, number_at(pat.bytes, at));
  for (listed_pmt &pmt : slots) // what it means to the analyzer can change
    pmt.digest = 0;
  return true;
}

bool survey::pmt(ts_pkt pkt, listed_pmt &listed) {
  ++listed.packets;
  if (ts_is_scrambled(pkt)) {
    ++listed.scrambled;
    return false;
  }
  const section pmt = section_in(pkt, TABLE_PMT);
  if (pmt.bytes.empty())
    return false;
  ++listed.tables;
  listed.pointed += pmt.is_pointed;
  if (!is_new(listed.digest, pkt) || pmt.bytes.size() < PMT_HEADER)
    return false;
  for (size_t at = PMT_HEADER + (number_at(pmt.bytes, PMT_HEADER - 2) & 0x0FFF);
       at + ES_HEADER <= pmt.bytes.size();
       at += ES_HEADER + (number_at(pmt.bytes, at + 3) & 0x0FFF))
    listed.types.set(pmt.bytes[at]);
  return true;
}

bool survey::packet(ts_pkt pkt) {
  ++packets;
  const uint32_t pid = ts_pid(pkt);
  if (pid == 0)
    return pat(pkt);
  return slot_of[pid] != NONE && pmt(pkt, slots[slot_of[pid]]);
}

const listed_pmt *survey::pmt_on(uint32_t pid) const {
  return pid < slot_of.size() && slot_of[pid] != NONE ? &slots[slot_of[pid]] : nullptr;
}
