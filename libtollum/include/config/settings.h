// Single values out of a libconfig group.
#pragma once

#include <cstddef>

#include <libconfig.h>

// Reads the string `name` of `group` into `dst`, a zero-filled buffer of at least `size` bytes, of
// which at most `size` - 1 are used. A missing value takes `dflt` (null or empty: an empty text).
// Returns 0, or -1 for a value of `size` characters or more, which is reported; `dst` is then
// left alone.
int load_config_setting_str(const config_setting_t *group, const char *name, char *dst, size_t size,
                            const char *dflt);

// Reads a size: an integer, or a text with a suffix (a2int64). A missing or empty value takes
// `dflt`. Returns 0 or the negative code of the text that could not be read, storing nothing.
int load_config_setting_size(const config_setting_t *group, const char *name, size_t *value,
                             size_t dflt);
