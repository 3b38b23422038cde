#include "input/framing.h"

#include <algorithm>
#include <cstring>

namespace {

enum : size_t {
  SYNC_BYTE = 0x47,
  PACKET = 188,
  SIZE_MOST = 208,
  GRID_SYNCS = 5,   // that make a grid
  SCORE_MOST = 256, // sync bytes that tell which grid is the best one
  GRID_REACH = (GRID_SYNCS - 1) * SIZE_MOST + 1,
  SCORE_REACH =
      SCORE_MOST * SIZE_MOST, // from the first place of a grid to the last byte of a score
};

constexpr size_t sizes[] = {188, 192, 204, 208};

// Bytes of a record before its sync byte.
constexpr size_t stamp_of(size_t size) {
  return size == 192 ? 4 : 0;
}

// Part of the capture, and how its grids are judged.
struct view {
  uint64_t from;
  std::span<const uint8_t> bytes;
  bool is_last;   // the capture ends with it
  uint64_t begin; // of the search
  bool has_grid;  // not the first search

  uint64_t end() const { return from + bytes.size(); }
  bool is_sync(uint64_t at) const { return bytes[at - from] == SYNC_BYTE; }
};

// Sync bytes in a row, from `at` on.
size_t count_syncs(const view &v, uint64_t at, size_t size, size_t most) {
  size_t n = 0;
  for (; n < most && at < v.end() && v.is_sync(at); at += size)
    ++n;
  return n;
}

// Near the end fewer than five sync bytes make a grid, when there is no room for more.
bool is_grid(const view &v, uint64_t at, size_t size) {
  if (at < v.begin + stamp_of(size))
    return false;
  const size_t syncs = count_syncs(v, at, size, GRID_SYNCS);
  if (syncs == GRID_SYNCS)
    return true;
  const bool is_cut = v.is_last && at + syncs * size >= v.end();
  return is_cut && at + PACKET <= v.end() && (v.has_grid || syncs >= 2 || at == stamp_of(size));
}

struct grid {
  uint64_t at;
  size_t size, score;
};

std::span<const size_t> candidates(const size_t &size) {
  return size != 0 ? std::span(&size, 1) : std::span(sizes);
}

// The first place of any grid, or v.end(); `stop` is the first one that is not looked at.
uint64_t first_grid(const view &v, uint64_t at, uint64_t stop, std::span<const size_t> allowed) {
  while (at < stop) {
    const void *sync = memchr(&v.bytes[at - v.from], SYNC_BYTE, stop - at);
    if (!sync)
      break;
    at = v.from + static_cast<uint64_t>(static_cast<const uint8_t *>(sync) - v.bytes.data());
    if (std::ranges::any_of(allowed, [&](size_t size) { return is_grid(v, at, size); }))
      return at;
    ++at;
  }
  return v.end();
}

// The grid with the most sync bytes of those that begin within a packet's length. A score costs no
// more than the packets that the best grid then has, so that searches stay linear in the bytes.
grid best_grid(const view &v, uint64_t first, std::span<const size_t> allowed) {
  grid best = {};
  for (uint64_t at = first; at < std::min(first + SIZE_MOST, v.end()); ++at) {
    if (!v.is_sync(at))
      continue;
    for (const size_t size : allowed) {
      const size_t score = is_grid(v, at, size) ? count_syncs(v, at, size, SCORE_MOST) : 0;
      if (score > best.score)
        best = {at, size, score};
    }
  }
  return best;
}

} // namespace

framing::framing(byte_input &from, size_t packet_size) : source(from), size(packet_size) {}

size_t framing::stamp() const {
  return stamp_of(size);
}

uint64_t framing::bytes_read() const {
  return is_over ? seen : std::min(record_begin(), seen);
}

// As fetch(), also from behind what was fetched so far.
std::span<const uint8_t> framing::look(uint64_t from, size_t least) {
  while (seen < from) {
    const std::span skipped = source.fetch(seen, 1);
    if (skipped.empty())
      return {};
    seen = std::min(from, seen + skipped.size());
  }
  const std::span bytes = source.fetch(from, least);
  seen = from + bytes.size();
  return bytes;
}

// Goes to the best grid at `search_from` or behind it, or to the end of the capture.
framing::found framing::search() {
  const auto allowed = candidates(size);
  const auto view_at = [&](uint64_t at, size_t reach) {
    searched = at;
    const uint64_t from = std::max(search_from, at - std::min<uint64_t>(at, stamp_of(192)));
    const size_t least = at - from + reach;
    const std::span bytes = look(from, least);
    return view{from, bytes, bytes.size() < least, search_from, has_grid};
  };
  for (;;) {
    const view v = view_at(searched, GRID_REACH);
    if (v.is_last && source.is_starved())
      return found::too_little;
    const uint64_t stop = v.is_last ? v.end() : v.end() - (GRID_REACH - 1);
    const uint64_t first = first_grid(v, searched, stop, allowed);
    if (first < stop) {
      const view reach = view_at(first, SCORE_REACH);
      if (reach.is_last && source.is_starved())
        return found::too_little;
      const grid best = best_grid(reach, first, allowed);
      place = best.at;
      size = best.size;
      has_grid = true;
      return found::grid;
    }
    searched = stop;
    if (v.is_last) {
      place = v.end();
      return found::nothing;
    }
  }
}

bool framing::start(uint64_t first) {
  if (const found what = search(); what != found::grid) {
    leading = place;
    if (what == found::nothing)
      end();
    return false;
  }
  leading = place - stamp();
  place += std::min(first - 1, uint64_t{INT64_MAX} / 2 / size) * size;
  ahead = next(1);
  return ahead->what != framing_step::END && !is_lost;
}

framing_step framing::end() {
  is_over = true;
  return {};
}

framing_step framing::next(uint64_t most) {
  if (ahead) {
    const framing_step step = *ahead;
    ahead.reset();
    return step;
  }
  if (is_lost)
    return end();
  if (is_searching)
    return regain_sync();
  const size_t before = stamp();
  std::span record = look(place - before, before + PACKET);
  if (record.size() < before + PACKET) {
    if (source.is_starved())
      return {framing_step::STARVED};
    tail = record.size();
    return end();
  }
  const std::span bytes = record.subspan(before);
  if (bytes[0] != SYNC_BYTE)
    return lose_sync();
  const size_t room = (bytes.size() - PACKET) / size + 1;
  return {framing_step::PACKETS, bytes.data(), std::min<uint64_t>(most, room), place, 0};
}

// The sync byte at `place` is wrong.
framing_step framing::lose_sync() {
  const uint64_t at = place, record = record_begin();
  // A file that is cut off while it is read shows zeros first.
  const std::span bytes = source.fetch_again(record, stamp() + size + 1);
  if (bytes.size() < stamp() + PACKET || bytes[stamp()] == SYNC_BYTE)
    return next(1);
  if (bytes.size() <= stamp() + size && source.is_starved())
    return {framing_step::STARVED};
  if (bytes.size() <= stamp() + size || bytes[stamp() + size] == SYNC_BYTE) {
    place += size;
    return {framing_step::BAD_SYNC, nullptr, 1, at, 0};
  }
  search_from = searched = at + 1;
  is_searching = true;
  return regain_sync();
}

framing_step framing::regain_sync() {
  const uint64_t at = place, record = record_begin();
  const found what = search();
  if (what == found::too_little)
    return {framing_step::STARVED};
  is_searching = false;
  is_lost = what == found::nothing;
  return {framing_step::LOSS, nullptr, 0, at, (is_lost ? place : record_begin()) - record};
}
