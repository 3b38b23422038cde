// The settings file.
#pragma once

#include "tsanalyze/tsan.h"

// Fills `cfg` from group "vnt.stream_analyzer" of the libconfig file `path`. Returns 0, -1 when the
// file or the group cannot be read, or the analyzer's code for a bad key; failures are reported.
int load_config(const char *path, tsan_config *cfg);
