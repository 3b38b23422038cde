// Stream time as text.
#pragma once

#include <cstddef>
#include <cstdint>

// "01:02:03.004"; the hours are not reduced to a day. At most `slen` - 1 bytes are written, the
// terminator included; a text that needs more ends the process through an assertion.
void ms2timestr(uint64_t ms, char *buf, size_t slen);
