// The settings file.
#pragma once

#include <functional>

#include <libconfig.h>

#include "tsanalyze/tsan.h"

// Reads the libconfig file `path` and hands it to `load`. Returns what that returns, or -1 when the
// file cannot be read; failures are reported.
int load_settings(const char *path, const std::function<int(const config_t &)> &load);

// Fills `cfg` from group "vnt.stream_analyzer" of the libconfig file `path`. Returns 0, -1 when the
// file or the group cannot be read, or the analyzer's code for a bad key; failures are reported.
int load_config(const char *path, tsan_config *cfg);
