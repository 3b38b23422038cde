// What a capture holds behind the last packet that was analyzed: how much, and where sync was lost,
// what it looks like.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

// Sync bytes at equal distances.
struct sync_grid {
  size_t packet_size = 0; // 188, 192, 204 or 208; 0: there are none
  uint64_t offset = 0;    // of the first, in the capture
};

struct capture_rest {
  bool is_known = false; // of a regular file
  uint64_t bytes = 0;
  bool is_sync_lost = false;
  sync_grid grid; // then: what the next bytes look like
};

// The first grid in `bytes`, which begin at `offset` of the capture; `is_last`: and end with it.
sync_grid find_grid(std::span<const uint8_t> bytes, uint64_t offset, bool is_last);

// The rest of the file at `path` from `offset` on.
capture_rest look_behind(const char *path, uint64_t offset, bool is_sync_lost);
