// --junit of an audit.
#pragma once

#include "outputs/audited_run.h"
#include "outputs/output_file.h"

// Whether the capture could be judged is a case; each indicator of ETSI TR 101 290 is one, and each
// kind of finding that no indicator counts. What only warns does not fail.
void junit_of_audit(output_file &out, const audited_run &run);
