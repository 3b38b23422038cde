// The file of --baseline.
#pragma once

#include "outputs/baseline.h"

// Fills `to` from the libconfig file `path`, which lasts as long: entries for kinds of the analyzer
// that is at work; those for the other one are looked at and left out. Nothing that is misspelt is
// accepted. Returns 0, or -1 after a line on standard error that says what is wrong and where.
int load_baseline(const char *path, bool is_audit, baseline &to);
