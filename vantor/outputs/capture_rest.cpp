#include "outputs/capture_rest.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "mpegts/constants.h"

namespace {

enum : size_t { LOOKED_AT = 32'768, GRID_SYNCS = 5, LAST_SYNCS = 2 };

constexpr size_t packet_sizes[] = {TS_PKT_SIZE, 192, 204, 208};

// Sync bytes in a row from `at` on, when they make a grid, else 0. At the capture's end a few do.
size_t count_syncs(std::span<const uint8_t> bytes, size_t at, size_t size, bool is_last) {
  size_t n = 0;
  for (; at < bytes.size() && bytes[at] == TS_SYNC_BYTE; at += size)
    ++n;
  return n >= GRID_SYNCS || (is_last && at >= bytes.size() && n >= LAST_SYNCS) ? n : 0;
}

} // namespace

sync_grid find_grid(std::span<const uint8_t> bytes, uint64_t offset, bool is_last) {
  size_t most = 0;
  sync_grid grid;
  for (size_t at = 0; at < bytes.size() && most == 0; ++at)
    for (const size_t size : packet_sizes)
      if (const size_t syncs = count_syncs(bytes, at, size, is_last); syncs > most) {
        most = syncs;
        grid = {size, offset + at};
      }
  return grid;
}

capture_rest look_behind(const char *path, uint64_t offset, bool is_sync_lost) {
  capture_rest rest;
  rest.is_sync_lost = is_sync_lost;
  struct stat st;
  if (stat(path, &st) != 0 || !S_ISREG(st.st_mode))
    return rest;
  const auto size = static_cast<uint64_t>(st.st_size);
  rest.is_known = true;
  rest.bytes = size - std::min(size, offset);
  const int fd = is_sync_lost ? open(path, O_RDONLY | O_CLOEXEC) : -1;
  if (fd == -1)
    return rest;
  uint8_t bytes[LOOKED_AT];
  const ssize_t n = pread(fd, bytes, sizeof bytes, static_cast<off_t>(offset));
  close(fd);
  if (n > 0)
    rest.grid =
        find_grid({bytes, static_cast<size_t>(n)}, offset, static_cast<size_t>(n) == rest.bytes);
  return rest;
}
