// Bytes that a caller hands over in pieces of any size. They are looked at where they lie; copied
// is only what the next piece has to be joined with.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "input/byte_input.h"

class fed_source final : public byte_input {
public:
  fed_source();

  // The next bytes, which stay where they are until keep().
  void feed(std::span<const uint8_t> bytes);

  // Copies what is still wanted of them.
  void keep();

  // Nothing more comes.
  void finish() { is_finished = true; }

  std::span<const uint8_t> fetch(uint64_t from, size_t least) override;
  std::span<const uint8_t> fetch_again(uint64_t from, size_t least) override {
    return fetch(from, least);
  }
  bool is_starved() const override { return lacks_bytes && !is_finished; }

private:
  uint64_t piece_begin() const { return end - piece.size(); }
  std::span<const uint8_t> kept_bytes() const { return std::span(kept).subspan(dropped); }
  void drop_before(uint64_t from);
  void take(size_t count);

  std::span<const uint8_t> piece; // to `end`
  std::vector<uint8_t> kept;      // what lies before it, behind `dropped` bytes
  size_t dropped = 0;
  uint64_t end = 0;    // of all that was handed over
  uint64_t wanted = 0; // what lies before is not
  bool lacks_bytes = false, is_finished = false;
};
