// The analyzer's clocks. clock.cpp holds nothing else, so that a test can link its own.
#pragma once

#include <ctime>

// Monotonic time now; a clock that cannot be read aborts the process.
void set_now(timespec *ts);

// Wall-clock second.
time_t wall_seconds();
