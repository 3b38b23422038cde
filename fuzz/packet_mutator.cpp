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

void mutate(stream &s, std::minstd_rand &random) {
  const size_t at = random() % s.count;
  const size_t other = random() % s.count;
  switch (random() % 8) {
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
  default:
    mutate_bytes(s.packets[at], random);
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
