// Records that begin with their size in bytes, between programs and libraries of any two versions:
// a longer record has fields at its end that the shorter one lacks.
#pragma once

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>

// The fields that both sides know, the rest 0. False when the caller has set no size.
template <typename Record> bool take_record(const Record &from, Record &known) {
  if (from.size < sizeof from.size)
    return false;
  known = {};
  memcpy(&known, &from, std::min(from.size, sizeof known));
  known.size = sizeof known;
  return true;
}

// Fills the caller's record as far as that goes. Returns 0, or EINVAL when it has no size.
template <typename Record> int give_record(Record filled, Record *to) {
  const size_t size = to->size, common = std::min(size, sizeof filled);
  if (size < sizeof size)
    return EINVAL;
  filled.size = size;
  memcpy(to, &filled, common);
  memset(reinterpret_cast<unsigned char *>(to) + common, 0, size - common);
  return 0;
}
