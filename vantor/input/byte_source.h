// The file being analyzed, as bytes in place: what splits it into packets stands on this.
//
// Regular files are looked at where the kernel keeps them, through a window that moves (see
// mapped_window.h). Pipes, devices, files of /proc and all else is read into one buffer in few,
// large steps. So is the rest of a regular file from where that cannot be mapped any more: at its
// end, where it became shorter, where its disk fails. Thus the end of a file and its errors are
// always those of read(2), and what is added while it is read counts.
#pragma once

#include <csignal>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include <sys/types.h>

#include "input/byte_input.h"
#include "input/mapped_window.h"

class byte_source final : public byte_input {
public:
  byte_source() = default;
  byte_source(const byte_source &) = delete;
  byte_source &operator=(const byte_source &) = delete;
  ~byte_source() { close(); }

  // Returns 0, the errno of open(2), or ENOMEM.
  int open(const char *path);

  // Goes to a byte offset from the start, before anything is fetched; the first fetch is then from
  // there. Returns 0, or the errno of lseek(2).
  int seek(off_t offset);

  // Bytes from where it stands to the end, 0 when that is not known. Before anything is fetched.
  uint64_t remaining() const;

  // Offsets count from the start of the file; where there is no seeking, from where it was opened.
  //
  // Of a regular file, another process can change the bytes while they are looked at. Those that
  // the file loses become zeros then: ask fetch_again() before judging by bytes that make no sense.
  std::span<const uint8_t> fetch(uint64_t from, size_t least) override {
    if (from + least > end) [[unlikely]]
      advance(from, least);
    return {data + (from - begin), end - from};
  }

  // As fetch(), of what the file holds now.
  std::span<const uint8_t> fetch_again(uint64_t from, size_t least) override;

  // Lets the file end at a read that a signal interrupts when `*flag` is set by then.
  void stop_at(const volatile sig_atomic_t *flag) { stop = flag; }

  // The errno of the read(2) that made the end, 0 when it was the file's.
  int read_errno() const { return error; }

  void close();

private:
  // About the second-level cache of a server core: measured, the kernel copies faster into memory
  // that is not in that cache than into memory that is. Where memory is short, less will do.
  enum : size_t { CAPACITY = 808 << 10, LEAST_CAPACITY = CAPACITY / 8 };

  bool get_buffer();
  void advance(uint64_t from, size_t least);
  void leave_window(uint64_t from);
  void refill(uint64_t from, size_t least);

  int fd = -1;
  bool is_mapped = false;
  bool at_end = false;
  int error = 0;
  const volatile sig_atomic_t *stop = nullptr;
  const uint8_t *data = nullptr; // what is at hand, in the window or in the buffer,
  uint64_t begin = 0, end = 0;   // and its offsets
  mapped_window window;
  std::unique_ptr<uint8_t[]> buf;
  size_t capacity = 0;
};
