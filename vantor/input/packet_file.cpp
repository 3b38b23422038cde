#include "input/packet_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

int packet_file::open(const char *path) {
  fd = ::open(path, O_RDONLY);
  if (fd == -1)
    return errno;
  buf.reset(new (std::nothrow) uint8_t[CAPACITY]()); // zeroed: its pages are there before packets
  return buf ? 0 : ENOMEM;
}

int packet_file::seek(off_t offset) {
  return lseek(fd, offset, SEEK_SET) == -1 ? errno : 0;
}

uint64_t packet_file::remaining() const {
  struct stat st;
  const off_t at = lseek(fd, 0, SEEK_CUR);
  if (at == -1 || fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) || st.st_size < at)
    return 0;
  return static_cast<uint64_t>(st.st_size - at);
}

// Reads until there is a block, or no more.
void packet_file::refill() {
  memmove(buf.get(), buf.get() + begin, end - begin);
  end -= begin;
  begin = 0;
  while (end < BLOCK_SIZE && !at_end) {
    const ssize_t n = read(fd, buf.get() + end, CAPACITY - end);
    if (n > 0) {
      end += static_cast<size_t>(n);
    } else if (n == 0 || errno != EINTR) {
      at_end = true;
      error = n == 0 ? 0 : errno;
    }
  }
}

std::span<const uint8_t> packet_file::next_block() {
  if (end - begin < BLOCK_SIZE)
    refill();
  const size_t size = std::min<size_t>(end - begin, BLOCK_SIZE) / PKT_SIZE * PKT_SIZE;
  const std::span block(buf.get() + begin, size);
  begin += size;
  return block;
}

void packet_file::close() {
  if (fd != -1)
    ::close(fd);
  fd = -1;
}
