#include "fuzz/packet_mutator.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <random>
#include <span>

extern "C" size_t LLVMFuzzerMutate(uint8_t *data, size_t size, size_t max_size);
extern "C" size_t LLVMFuzzerCustomMutator(uint8_t *data, size_t size, size_t max_size,
                                          unsigned seed);

namespace {

using packet = uint8_t[PACKET_SIZE];

// A stream in the fuzzer's buffer.
struct stream {
  packet *packets;
  size_t count;
  size_t capacity;
};

// Any change inside one packet, mostly where its headers and tables are.
void mutate_bytes(packet &pkt, std::minstd_rand &random) {
  const size_t from = random() % 4 == 0 ? random() % PACKET_SIZE : random() % 40;
  const size_t room = std::min<size_t>(PACKET_SIZE - from, 1 + random() % 32);
  LLVMFuzzerMutate(pkt + from, room, room);
}

void copy_pid(stream &s, size_t to, size_t from) {
  s.packets[to][1] = static_cast<uint8_t>((s.packets[to][1] & 0xe0) | (s.packets[from][1] & 0x1f));
  s.packets[to][2] = s.packets[from][2];
}

// Repeats a run of packets at another place.
void repeat_run(stream &s, size_t at, std::minstd_rand &random) {
  packet run[16];
  const size_t from = random() % s.count;
  const size_t n = std::min({1 + random() % std::size(run), s.count - from, s.capacity - s.count});
  memcpy(run, s.packets + from, n * PACKET_SIZE);
  memmove(s.packets + at + n, s.packets + at, (s.count - at) * PACKET_SIZE);
  memcpy(s.packets + at, run, n * PACKET_SIZE);
  s.count += n;
}

void remove_packet(stream &s, size_t at) {
  memmove(s.packets + at, s.packets + at + 1, (s.count - at - 1) * PACKET_SIZE);
  --s.count;
}

unsigned pid_of(const packet &pkt) {
  return (pkt[1] & 0x1Fu) << 8 | pkt[2];
}

size_t payload_of(const packet &pkt) {
  return pkt[3] & 0x20 ? std::min<size_t>(5 + pkt[4], PACKET_SIZE) : 4;
}

// The counters of a PID go up by one again, as if nothing were missing.
void count_anew(stream &s, unsigned pid) {
  unsigned counter = 0;
  for (packet &pkt : std::span(s.packets, s.count))
    if (pid_of(pkt) == pid) {
      counter += pkt[3] >> 4 & 1;
      pkt[3] = static_cast<uint8_t>((pkt[3] & 0xF0) | (counter & 15));
    }
}

// A section that ends within its packet gets its CRC_32 (ISO/IEC 13818-1, annex A) right.
void mend_section(packet &pkt) {
  const size_t at =
      payload_of(pkt) + 1 + (payload_of(pkt) < PACKET_SIZE ? pkt[payload_of(pkt)] : 0);
  if (at + 3 > PACKET_SIZE)
    return;
  const size_t end = at + 3 + ((pkt[at + 1] & 15u) << 8 | pkt[at + 2]);
  if (end > PACKET_SIZE || end < at + 7)
    return;
  uint32_t crc = 0xFFFFFFFF;
  for (size_t i = at; i < end - 4; ++i) {
    crc ^= uint32_t{pkt[i]} << 24;
    for (int bit = 0; bit < 8; ++bit)
      crc = crc << 1 ^ (crc >> 31 ? 0x04C11DB7 : 0);
  }
  for (size_t i = 0; i < 4; ++i)
    pkt[end - 4 + i] = static_cast<uint8_t>(crc >> (24 - 8 * i));
}

// A PES header with a PTS and a DTS that are not far from a clock of 40 ms in each packet.
void begin_pes(packet &pkt, size_t at, std::minstd_rand &random) {
  const uint64_t dts = at * 3600 + random() % 20000, pts = dts + random() % 4 * 3600;
  const auto put = [&pkt](size_t from, unsigned mark, uint64_t t) {
    const uint64_t bytes[] = {mark << 4 | (t >> 29 & 14) | 1, t >> 22, t >> 14 | 1, t >> 7,
                              t << 1 | 1};
    for (size_t i = 0; i < 5; ++i)
      pkt[from + i] = static_cast<uint8_t>(bytes[i]);
  };
  const size_t from = payload_of(pkt);
  if (from + 19 > PACKET_SIZE)
    return;
  constexpr uint8_t begin[] = {0, 0, 1, 0xE0, 0, 0, 0x80, 0xC0, 10};
  pkt[1] |= 0x40;
  memcpy(pkt + from, begin, sizeof begin);
  put(from + 9, 3, pts);
  put(from + 14, 1, dts);
}

// A PCR of that clock.
void put_pcr(packet &pkt, size_t at, std::minstd_rand &random) {
  const uint64_t pcr = (at * 3600 + random() % 3 * 9) << 15 | 0x7E00;
  pkt[3] |= 0x20;
  pkt[4] = std::max<uint8_t>(pkt[4], 7);
  pkt[5] |= 0x10;
  for (size_t i = 0; i < 6; ++i)
    pkt[6 + i] = static_cast<uint8_t>(pcr >> (40 - 8 * i));
}

// Makes a packet plausible again in one way.
void mend(stream &s, size_t at, std::minstd_rand &random) {
  switch (random() % 4) {
  case 0:
    return count_anew(s, pid_of(s.packets[at]));
  case 1:
    return mend_section(s.packets[at]);
  case 2:
    return begin_pes(s.packets[at], at, random);
  default:
    return put_pcr(s.packets[at], at, random);
  }
}

void mutate(stream &s, std::minstd_rand &random) {
  const size_t at = random() % s.count;
  const size_t other = random() % s.count;
  switch (random() % 12) {
  case 0:
    repeat_run(s, at, random);
    break;
  case 1:
    if (s.count > 1)
      remove_packet(s, at);
    break;
  case 2:
    std::swap(s.packets[at], s.packets[other]);
    break;
  case 3:
    copy_pid(s, at, other);
    break;
  case 4:
  case 5:
  case 6:
  case 7:
    mutate_bytes(s.packets[at], random);
    break;
  default:
    mend(s, at, random);
  }
}

} // namespace

size_t LLVMFuzzerCustomMutator(uint8_t *data, size_t size, size_t max_size, unsigned seed) {
  std::minstd_rand random(seed);
  if (size < SETTINGS_SIZE + PACKET_SIZE)
    return LLVMFuzzerMutate(data, size, max_size);
  if (random() % 16 == 0)
    LLVMFuzzerMutate(data, SETTINGS_SIZE, SETTINGS_SIZE);

  stream s{reinterpret_cast<packet *>(data + SETTINGS_SIZE), (size - SETTINGS_SIZE) / PACKET_SIZE,
           (max_size - SETTINGS_SIZE) / PACKET_SIZE};
  for (unsigned n = 1 + random() % 4; n-- > 0;)
    mutate(s, random);
  return SETTINGS_SIZE + s.count * PACKET_SIZE;
}
