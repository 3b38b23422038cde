// SIGBUS in mapped files. A page that cannot be had, because the file became shorter or its disk
// fails, is a signal where read(2) would return 0 or an error; it must not end the program.
//
// One stretch of memory is watched at a time. A fault inside it puts zeros in the place of the page
// and of all that is watched behind it, and is remembered. Whoever reads there asks for that before
// believing what was read. Other faults go to whoever handled them before.
#pragma once

#include <cstddef>
#include <cstdint>

// Takes the signal over. Returns false when it cannot be had, or is in use already.
bool bus_guard_claim();

// Watches so many bytes from the begin of a page on, and nothing else; forgets former faults.
void bus_guard_watch(const uint8_t *begin, size_t size);

// True when there was a fault in what is watched.
bool bus_guard_hit();

// Gives the signal back.
void bus_guard_release();
