#include "input/packet_file.h"

#include <algorithm>

namespace {

// At most `size` bytes, a multiple of a packet, of what is there.
std::span<const uint8_t> whole_packets(std::span<const uint8_t> there, size_t size) {
  return there.first(std::min(there.size(), size) / PKT_SIZE * PKT_SIZE);
}

} // namespace

int packet_file::seek(off_t offset) {
  at = static_cast<uint64_t>(offset);
  return source.seek(offset);
}

std::span<const uint8_t> packet_file::next_block() {
  const std::span block = whole_packets(source.fetch(at, BLOCK_SIZE), BLOCK_SIZE);
  at += block.size();
  return block;
}

std::span<const uint8_t> packet_file::again(size_t size) {
  at -= size;
  const std::span rest = whole_packets(source.fetch_again(at, size), size);
  at += rest.size();
  return rest;
}
