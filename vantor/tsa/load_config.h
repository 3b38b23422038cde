// The settings file.
#pragma once

#include <cstdio>
#include <functional>
#include <memory>

#include <libconfig.h>

#include "tsanalyze/tsan.h"

struct settings_closer {
  void operator()(FILE *file) const { fclose(file); }
};
using settings_file = std::unique_ptr<FILE, settings_closer>;

// Opens a file for the parser; null: errno tells why, 0 that it is neither a file nor a FIFO.
settings_file open_settings(const char *path);

// Reads the libconfig file `path` and hands it to `load`. Returns what that returns, or -1 when the
// file cannot be read; failures are reported.
int load_settings(const char *path, const std::function<int(const config_t &)> &load);

// Fills `cfg` from group "vnt.stream_analyzer" of the libconfig file `path`. Returns 0, -1 when the
// file or the group cannot be read, or the analyzer's code for a bad key; failures are reported.
int load_config(const char *path, tsan_config *cfg);
