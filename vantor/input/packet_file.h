// The file being analyzed, as blocks of packets.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "input/byte_source.h"

enum : size_t { PKT_SIZE = 188, BLOCK_PKTS = 100 };

// Hands the packets out in blocks of at most 100, as soon as a block is there: a pipe is followed
// as closely as its writer fills it.
class packet_file {
public:
  // As those of byte_source.
  int open(const char *path) { return source.open(path); }
  int seek(off_t offset);
  uint64_t remaining() const { return source.remaining(); }
  int read_errno() const { return source.read_errno(); }
  void close() { source.close(); }

  // The next packets, in place; valid until the next call. Empty at the end of the file and after a
  // read error; a partial packet at the end is not delivered.
  std::span<const uint8_t> next_block();

  // The last `size` bytes of that block once more, in place, as the file holds them now: fewer
  // packets when it has lost some meanwhile, and then the end.
  std::span<const uint8_t> again(size_t size);

private:
  enum : size_t { BLOCK_SIZE = BLOCK_PKTS * PKT_SIZE };

  byte_source source;
  uint64_t at = 0; // offset of the next block
};
