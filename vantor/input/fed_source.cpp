#include "input/fed_source.h"

#include <algorithm>

fed_source::fed_source() {
  kept.reserve(3 * LEAST_MAX); // never more: a fetch, as many dropped bytes, the rest of a piece
}

void fed_source::feed(std::span<const uint8_t> bytes) {
  piece = bytes;
  end += bytes.size();
  lacks_bytes = false;
}

// Moves the first bytes of the piece to those that are kept.
void fed_source::take(size_t count) {
  const auto bytes = piece.first(std::min(count, piece.size()));
  kept.insert(kept.end(), bytes.begin(), bytes.end());
  piece = piece.subspan(bytes.size());
}

void fed_source::drop_before(uint64_t from) {
  const uint64_t kept_begin = piece_begin() - kept_bytes().size();
  dropped += std::min<uint64_t>(from - kept_begin, kept_bytes().size());
  if (dropped >= kept.size() - dropped) { // so that each byte is moved once
    kept.erase(kept.begin(), kept.begin() + static_cast<ptrdiff_t>(dropped));
    dropped = 0;
  }
}

std::span<const uint8_t> fed_source::fetch(uint64_t from, size_t least) {
  wanted = from;
  drop_before(from);
  std::span bytes = kept_bytes();
  if (bytes.empty()) {
    bytes = piece.subspan(from - piece_begin());
  } else if (bytes.size() < least) {
    take(least - bytes.size());
    bytes = kept_bytes();
  }
  lacks_bytes = bytes.size() < least;
  return bytes;
}

void fed_source::keep() {
  drop_before(wanted);
  if (wanted > piece_begin())
    piece = piece.subspan(wanted - piece_begin());
  take(piece.size());
}
