#include "input/mapped_window.h"

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "input/bus_guard.h"

namespace {

enum : size_t {
  // The kernel maps a large page of its cache at once if the window holds it whole, and memory and
  // file are aligned alike; else piece by piece, at several times the cost.
  LARGE_PAGE = 2 << 20,
  // Measured: longer windows are no faster.
  WINDOW = 3 * LARGE_PAGE,
  SPACE = LARGE_PAGE + WINDOW, // can begin in the middle of a large page
  // How far a look goes; the work per look is small against it, that of an audit for each PID too.
  LOOK = LARGE_PAGE,
};

const auto page_size = static_cast<size_t>(sysconf(_SC_PAGESIZE));

uint64_t align_down(uint64_t value, size_t step) {
  return value / step * step;
}

uint64_t align_up(uint64_t value, size_t step) {
  return align_down(value + step - 1, step);
}

// 0 when it is not known, or the file is not one to be mapped.
uint64_t size_of(int fd) {
  struct stat st;
  return fstat(fd, &st) == 0 && S_ISREG(st.st_mode) ? static_cast<uint64_t>(st.st_size) : 0;
}

// Has each page read now: what fails, fails here.
void touch(const uint8_t *bytes, size_t size) {
  for (size_t at = 0; at < size; at += page_size)
    static_cast<void>(*static_cast<const volatile uint8_t *>(bytes + at));
  if (size != 0)
    static_cast<void>(*static_cast<const volatile uint8_t *>(bytes + size - 1));
}

} // namespace

bool mapped_window::open(int file) {
  if (size_of(file) == 0 || !bus_guard_claim())
    return false;
  fd = file;
  return true;
}

bool mapped_window::reserve() {
  void *address =
      mmap(nullptr, SPACE, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (address == MAP_FAILED)
    return false;
  space = static_cast<uint8_t *>(address);
  return true;
}

bool mapped_window::move(uint64_t from, size_t least) {
  const uint64_t size = size_of(fd);
  if (size < from + least || (!space && !reserve()))
    return false;
  begin = align_down(from, LARGE_PAGE);
  end = std::min(begin + WINDOW, size);
  void *place = space + (align_up(reinterpret_cast<uintptr_t>(space), LARGE_PAGE) -
                         reinterpret_cast<uintptr_t>(space));
  if (mmap(place, end - begin, PROT_READ, MAP_SHARED | MAP_FIXED, fd, static_cast<off_t>(begin)) ==
      MAP_FAILED)
    return false;
  madvise(place, end - begin, MADV_SEQUENTIAL);
  bytes = static_cast<const uint8_t *>(place);
  bus_guard_watch(bytes, align_up(end - begin, page_size));
  return true;
}

std::span<const uint8_t> mapped_window::look(uint64_t from, size_t least) {
  if (from + least > end && !move(from, least))
    return {};
  const uint8_t *at = bytes + (from - begin);
  const size_t there = std::min<uint64_t>(end - from, LOOK);
  touch(at, there);
  const uint64_t size = size_of(fd);
  if (bus_guard_hit() || size < from)
    return {};
  return {at, std::min<uint64_t>(there, size - from)};
}

void mapped_window::close() {
  if (fd == -1)
    return;
  bus_guard_release();
  if (space)
    munmap(space, SPACE);
  *this = {};
}
