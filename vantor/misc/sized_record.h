// Records that begin with their size in bytes, between programs and libraries of any two versions:
// a longer record has fields at its end that the shorter one lacks.
#pragma once

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>

// A size that was never set is most likely out of this range.
inline bool is_record_size(size_t size) {
  return size >= sizeof size && size <= 4096;
}

// The fields that both sides know, the rest 0. False for a size that no record has.
template <typename Record> bool take_record(const Record &from, Record &known) {
  if (!is_record_size(from.size))
    return false;
  known = {};
  memcpy(&known, &from, std::min(from.size, sizeof known));
  known.size = sizeof known;
  return true;
}

// Fills the caller's record as far as that goes. Returns 0, or EINVAL for a size that no record
// has.
template <typename Record> int give_record(Record filled, Record *to) {
  const size_t size = to->size, common = std::min(size, sizeof filled);
  if (!is_record_size(size))
    return EINVAL;
  filled.size = size;
  memcpy(to, &filled, common);
  memset(reinterpret_cast<unsigned char *>(to) + common, 0, size - common);
  return 0;
}
