// A run with --audit.
#pragma once

#include "outputs/run_info.h"

// Judges the capture that is asked for, and tells what it finds in the ways that g_cfg asks for.
// Returns the status of the run.
int run_audit(const run_request &request);
