// --json: the run as JSON Lines; docs/korva.schema.json describes each record.
#pragma once

#include "outputs/checked_run.h"
#include "outputs/output_file.h"

// Each record reaches the file before its function returns, an alert as a whole.
void json_header(output_file &out, const run_request &request);

// `time`: stream time of the packet, s, or NAN; `allowed`: the entry that allows it, or null.
void json_alert(output_file &out, const run_request &request, const tsan_alert &alert, double time,
                const listed_pmt *pmt, const allowed_finding *allowed);

// The closing record, and before it that of a file that could not be opened, or not be read to its
// end.
void json_end(output_file &out, const checked_run &run);
