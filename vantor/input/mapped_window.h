// A stretch of a regular file in memory, which moves through it: its pages are read where the
// kernel keeps them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

class mapped_window {
public:
  // The file that the window is to move through; it stays the caller's. False when it is not one to
  // be mapped, or another window is in use.
  bool open(int file);

  // Bytes of the file from offset `from` on, which never decreases, in place; they were there a
  // moment ago. Valid until the next call. Less than `least` of them, or none, when that is not to
  // be had this way, for whatever reason: read(2) tells.
  std::span<const uint8_t> look(uint64_t from, size_t least);

  void close();

private:
  bool reserve();
  bool move(uint64_t from, size_t least);

  int fd = -1;
  uint8_t *space = nullptr;    // address space that is kept for windows
  uint64_t begin = 0, end = 0; // offsets of the window
  const uint8_t *bytes = nullptr;
};
