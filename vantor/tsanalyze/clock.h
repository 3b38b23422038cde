// The analyzer's clocks. clock.cpp holds nothing else, so that a test can link its own.
#pragma once

#include <ctime>

// Monotonic time now. False, with errno, when the clock cannot be read.
bool set_now(timespec *ts);

// Wall-clock second.
time_t wall_seconds();
