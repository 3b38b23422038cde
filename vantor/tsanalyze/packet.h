// Bytes of one packet (ISO/IEC 13818-1, 2.4.3). Every read stays inside its 188 bytes: a field that
// the packet does not hold in full is not there.
#pragma once

#include <cstdint>
#include <span>

#include "tsanalyze/limits.h"

using pkt_bytes = std::span<const uint8_t>;

inline uint32_t ts_pid(const uint8_t *pkt) {
  return (pkt[1] & 0x1Fu) << 8 | pkt[2];
}

inline bool ts_unit_start(const uint8_t *pkt) {
  return pkt[1] & 0x40;
}

inline bool ts_payload_flag(const uint8_t *pkt) {
  return pkt[3] & 0x10;
}

inline bool ts_adaptation_flag(const uint8_t *pkt) {
  return pkt[3] & 0x20;
}

inline uint32_t ts_cc(const uint8_t *pkt) {
  return pkt[3] & 0x0F;
}

// The PCR itself lies in bytes 6 to 11 whatever the length says, so it is always in the packet.
inline bool ts_has_pcr(const uint8_t *pkt) {
  return ts_adaptation_flag(pkt) && pkt[4] != 0 && (pkt[5] & 0x10);
}

// Offset of the payload; 188 or more when the adaptation field leaves no room for one.
inline size_t ts_payload_offset(const uint8_t *pkt) {
  return ts_adaptation_flag(pkt) ? 5u + pkt[4] : 4u;
}

// The payload, empty when there is none.
inline pkt_bytes ts_get_payload(const uint8_t *pkt) {
  const size_t offset = ts_payload_offset(pkt);
  if (!ts_payload_flag(pkt) || offset >= TS_PKT_SIZE)
    return {};
  return {pkt + offset, TS_PKT_SIZE - offset};
}

// A PES packet starts here, on a stream_id from program_stream_map (0xBC) up (2.4.3.7).
inline bool is_pes_pkt(pkt_bytes payload) {
  return payload.size() >= 4 && payload[0] == 0 && payload[1] == 0 && payload[2] == 1 &&
         payload[3] > 0xBB;
}

enum : size_t { PES_PTS_AT = 9, PES_DTS_AT = 14, PES_STAMP_SIZE = 5 };

inline bool pes_has_PTS(pkt_bytes pes) {
  return pes.size() >= PES_PTS_AT + PES_STAMP_SIZE && (pes[7] & 0x80);
}

inline bool pes_has_DTS(pkt_bytes pes) {
  return pes.size() >= PES_DTS_AT + PES_STAMP_SIZE && (pes[7] & 0xC0) == 0xC0;
}

// 33 bits in 90 kHz ticks; marker bits are not looked at.
inline uint64_t pes_stamp(pkt_bytes pes, size_t at) {
  return (pes[at] & uint64_t{0x0E}) << 29 | uint64_t{pes[at + 1]} << 22 |
         (pes[at + 2] & uint64_t{0xFE}) << 14 | uint64_t{pes[at + 3]} << 7 |
         uint64_t{pes[at + 4]} >> 1;
}

inline uint64_t pes_get_PTS(pkt_bytes pes) {
  return pes_stamp(pes, PES_PTS_AT);
}

inline uint64_t pes_get_DTS(pkt_bytes pes) {
  return pes_stamp(pes, PES_DTS_AT);
}
