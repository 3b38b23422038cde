// Distance of two monotonic times.
#pragma once

#include <ctime>

// Absolute difference into `out`.
void tspec_diff(const timespec *a, const timespec *b, timespec *out);

// The same in whole milliseconds.
long diff_ms(const timespec *a, const timespec *b);
