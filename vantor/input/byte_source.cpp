#include "input/byte_source.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <new>

// Its memory is not touched unless it is used.
bool byte_source::get_buffer() {
  for (size_t size = CAPACITY; !buf && size >= LEAST_CAPACITY; size /= 2) {
    buf.reset(new (std::nothrow) uint8_t[size]);
    capacity = size;
  }
  return buf != nullptr;
}

int byte_source::open(const char *path) {
  fd = ::open(path, O_RDONLY);
  if (fd == -1)
    return errno;
  if (!get_buffer())
    return ENOMEM;
  data = buf.get();
  is_mapped = window.open(fd);
  return 0;
}

int byte_source::seek(off_t offset) {
  if (lseek(fd, offset, SEEK_SET) == -1)
    return errno;
  begin = end = static_cast<uint64_t>(offset);
  return 0;
}

uint64_t byte_source::remaining() const {
  struct stat st;
  if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode))
    return 0;
  const auto size = static_cast<uint64_t>(st.st_size);
  return size < begin ? 0 : size - begin;
}

void byte_source::advance(uint64_t from, size_t least) {
  if (is_mapped) {
    const std::span there = window.look(from, least);
    if (there.size() >= least) {
      data = there.data();
      begin = from;
      end = from + there.size();
      return;
    }
    leave_window(from);
  }
  refill(from, least);
}

// From here on, it is read.
void byte_source::leave_window(uint64_t from) {
  is_mapped = false;
  window.close();
  data = buf.get();
  begin = end = from;
  if (lseek(fd, static_cast<off_t>(from), SEEK_SET) == -1) {
    at_end = true;
    error = errno;
  }
}

// Reads until there is enough, or no more.
void byte_source::refill(uint64_t from, size_t least) {
  size_t size = end - from;
  memmove(buf.get(), data + (from - begin), size);
  begin = from;
  while (size < least && !at_end) {
    const ssize_t n = read(fd, buf.get() + size, capacity - size);
    if (n > 0) {
      size += static_cast<size_t>(n);
    } else if (n == 0 || errno != EINTR) {
      at_end = true;
      error = n == 0 ? 0 : errno;
    } else if (stop && *stop) {
      at_end = true;
    }
  }
  end = from + size;
}

std::span<const uint8_t> byte_source::fetch_again(uint64_t from, size_t least) {
  if (is_mapped)
    advance(from, least);
  return fetch(from, least);
}

void byte_source::close() {
  window.close();
  if (fd != -1)
    ::close(fd);
  fd = -1;
}
