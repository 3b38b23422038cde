// Bytes of one packet (ISO/IEC 13818-1, 2.4.3). Every read stays inside its 188 bytes: a field that
// the packet does not hold in full is not there. This holds while another process changes the
// bytes, as it can when they lie in a mapped file: what bounds a read is read once.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "mpegts/constants.h"

using pkt_bytes = std::span<const uint8_t>;

// A byte that bounds what is read, of memory that another process may write: the compiler must not
// read it again.
inline uint8_t ts_read_once(const uint8_t *byte) {
  return *static_cast<const volatile uint8_t *>(byte);
}

// One packet, with the four bytes that each begins with (2.4.3.2) as one number, and the byte
// behind them. It is handed on by value, so that those are read once.
struct ts_pkt {
  uint32_t header;
  uint8_t adaptation_length; // 0 without ts_adaptation_flag()
  const uint8_t *bytes;      // all 188
};

enum : uint32_t { ADAPTATION_FLAG = 0x20 };

inline ts_pkt ts_read(const uint8_t *bytes) {
  uint32_t header =
      uint32_t{bytes[0]} << 24 | uint32_t{bytes[1]} << 16 | uint32_t{bytes[2]} << 8 | bytes[3];
  asm("" : "+r"(header)); // as one read; the compiler must not repeat it either
  // Without an adaptation field the byte is left alone: it can lie in a cache line of its own.
  const uint8_t length = header & ADAPTATION_FLAG ? ts_read_once(bytes + 4) : 0;
  return {header, length, bytes};
}

inline bool ts_in_sync(ts_pkt pkt) {
  return pkt.header >> 24 == TS_SYNC_BYTE;
}

inline uint32_t ts_pid(ts_pkt pkt) {
  return pkt.header >> 8 & 0x1FFF;
}

inline bool ts_unit_start(ts_pkt pkt) {
  return pkt.header & 0x400000;
}

inline bool ts_adaptation_flag(ts_pkt pkt) {
  return pkt.header & ADAPTATION_FLAG;
}

inline bool ts_payload_flag(ts_pkt pkt) {
  return pkt.header & 0x10;
}

inline bool ts_transport_error(ts_pkt pkt) {
  return pkt.header & 0x800000;
}

inline bool ts_is_scrambled(ts_pkt pkt) {
  return pkt.header & 0xC0;
}

inline uint32_t ts_cc(ts_pkt pkt) {
  return pkt.header & 0x0F;
}

// The PCR itself lies in bytes 6 to 11 whatever the length says, so it is always in the packet.
inline bool ts_has_pcr(ts_pkt pkt) {
  return ts_adaptation_flag(pkt) && pkt.adaptation_length != 0 && (pkt.bytes[5] & 0x10);
}

// The same of an adaptation field that fits its packet and holds the PCR in full.
inline bool ts_has_whole_pcr(ts_pkt pkt) {
  const size_t length = pkt.adaptation_length,
               most = TS_PKT_SIZE - 5 - (ts_payload_flag(pkt) ? 1 : 0);
  return ts_adaptation_flag(pkt) && length >= 7 && length <= most && (pkt.bytes[5] & 0x10);
}

// 42 bits: base * 300 + extension, in 27 MHz ticks.
inline int64_t ts_get_pcr(ts_pkt pkt) {
  const uint8_t *b = pkt.bytes + 6;
  const int64_t base = int64_t{b[0]} << 25 | b[1] << 17 | b[2] << 9 | b[3] << 1 | b[4] >> 7;
  return base * 300 + ((b[4] & 1) << 8 | b[5]);
}

// discontinuity_indicator
inline bool ts_discontinuity(ts_pkt pkt) {
  return ts_adaptation_flag(pkt) && pkt.adaptation_length != 0 && (pkt.bytes[5] & 0x80);
}

// Offset of the payload; 188 or more when the adaptation field leaves no room for one.
inline size_t ts_payload_offset(ts_pkt pkt) {
  return ts_adaptation_flag(pkt) ? 5u + pkt.adaptation_length : 4u;
}

// The payload, empty when there is none.
inline pkt_bytes ts_get_payload(ts_pkt pkt) {
  const size_t offset = ts_payload_offset(pkt);
  if (!ts_payload_flag(pkt) || offset >= TS_PKT_SIZE)
    return {};
  return {pkt.bytes + offset, TS_PKT_SIZE - offset};
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
