// Group "vnt.audit" of a settings file.
#pragma once

#include "tsa/config.h"

// Fills `cfg` from the libconfig file `path`, which may lack the group if it has that of the other
// checks. Returns 0, or -1 after a report of what is wrong and where.
int load_audit_settings(const char *path, config &cfg);
