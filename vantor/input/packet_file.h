// The file being analyzed, as blocks of packets.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include <sys/types.h>

enum : size_t { PKT_SIZE = 188, BLOCK_PKTS = 100 };

// Reads through one buffer of its own in few, large steps, and hands the packets out in blocks of
// at most 100, as soon as a block is there: a pipe is followed as closely as its writer fills it.
class packet_file {
public:
  // Returns 0, the errno of open(2), or ENOMEM.
  int open(const char *path);

  // Goes to a byte offset from the start, before anything is read. Returns 0, or the errno of
  // lseek(2).
  int seek(off_t offset);

  // Bytes from where it stands to the end, 0 when that is not known. Before anything is read.
  uint64_t remaining() const;

  // The next packets, in place; valid until the next call. Empty at the end of the file and after a
  // read error; a partial packet at the end is not delivered.
  std::span<const uint8_t> next_block();

  // The errno of the read(2) that made the end, 0 when it was the file's.
  int read_errno() const { return error; }

  void close();

private:
  // About the second-level cache of a server core: measured, the kernel copies faster into memory
  // that is not in that cache than into memory that is.
  enum : size_t { BLOCK_SIZE = BLOCK_PKTS * PKT_SIZE, CAPACITY = 44 * BLOCK_SIZE };

  void refill();

  int fd = -1;
  bool at_end = false;
  int error = 0;
  size_t begin = 0, end = 0; // bytes read and not handed out
  std::unique_ptr<uint8_t[]> buf;
};
