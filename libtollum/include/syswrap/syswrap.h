// Checked system and library calls.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <memory>

// calloc(3) that reports a refusal in the name of `caller` and returns null with errno kept.
void *W_calloc(const char *caller, size_t count, size_t size);

struct free_deleter {
  void operator()(void *ptr) const { std::free(ptr); }
};
// Owner of memory that came from W_calloc, or from the C library for its caller to free.
template <typename T> using calloc_ptr = std::unique_ptr<T, free_deleter>;

// Makes getopt_long(3) start over completely at its next call.
void reset_getopt_state();
