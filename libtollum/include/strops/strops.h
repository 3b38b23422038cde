// Numbers with a size suffix.
#pragma once

#include <cstddef>
#include <cstdint>

// Converts a decimal text with an optional suffix K, Kb, M, Mb, G or Gb (any case, factor 1024 each
// step; fractions allowed: "1.5K" is 1536), which must be all that follows the first letter.
// Integers are truncated toward zero. Return 0 and store the value, or, storing nothing:
// -2 beyond 64 bits, -3 number part longer than 63 characters, -4 out of the range of a double,
// -5 unknown suffix. `text` must not be null.
int a2double(const char *text, double *value);
int a2int64(const char *text, int64_t *value);
int a2size(const char *text, size_t *value);
