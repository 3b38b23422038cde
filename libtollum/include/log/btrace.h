// Backtrace of the calling thread as text.
#pragma once

#include <cstddef>

// Writes one line per frame, "#0: symbol", at most 16, into `buf` as far as `size` bytes hold them.
// Returns 0, or -1 when there are no frames or they cannot be resolved (reported on stderr).
int btrace_to_buf(char *buf, size_t size);

// The same behind a formatted heading; null `format`: no heading. Returns -1 also when the heading
// is empty or does not fit.
[[gnu::format(printf, 3, 4)]] int snprintf_btrace(char *buf, size_t size, const char *format, ...);
