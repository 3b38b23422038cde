// Bytes of a capture in their order, in place: what framing stands on.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

class byte_input {
public:
  // The most that fetch() can be asked for.
  enum : size_t { LEAST_MAX = 64 << 10 };

  // Bytes from offset `from` on, in place, valid until the next call: `least` of them (at most
  // LEAST_MAX) and whatever else is at hand. Less than `least` only at the end, before a read
  // error, or where more has to come first; an end stays where it was first met. `from` never
  // decreases, and does not go beyond what was fetched; what lies before it is dropped.
  virtual std::span<const uint8_t> fetch(uint64_t from, size_t least) = 0;

  // As fetch(), of what is there now.
  virtual std::span<const uint8_t> fetch_again(uint64_t from, size_t least) = 0;

  // The last fetch() gave less because more has to come first.
  virtual bool is_starved() const { return false; }

protected:
  byte_input() = default;
  byte_input(const byte_input &) = delete;
  byte_input &operator=(const byte_input &) = delete;
  ~byte_input() = default;
};
