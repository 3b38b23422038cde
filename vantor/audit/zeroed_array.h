// Records that begin as zeros and cost no memory until they are used.
#pragma once

#include <sys/mman.h>

#include <cstddef>
#include <new>
#include <type_traits>

template <typename Record, size_t count> class zeroed_array {
  static_assert(std::is_trivially_copyable_v<Record> && std::is_trivially_destructible_v<Record>);

public:
  // Throws std::bad_alloc.
  zeroed_array()
      : items(mmap(nullptr, SIZE, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)) {
    if (items == MAP_FAILED)
      throw std::bad_alloc();
  }
  zeroed_array(const zeroed_array &) = delete;
  zeroed_array &operator=(const zeroed_array &) = delete;
  ~zeroed_array() { munmap(items, SIZE); }

  Record &operator[](size_t i) { return static_cast<Record *>(items)[i]; }
  const Record &operator[](size_t i) const { return static_cast<const Record *>(items)[i]; }

private:
  static constexpr size_t SIZE = count * sizeof(Record);
  void *items;
};
