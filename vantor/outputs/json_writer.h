// --json: the run as JSON Lines; docs/korva.schema.json describes each record.
#pragma once

#include "outputs/output_file.h"
#include "outputs/report_data.h"
#include "outputs/run_info.h"

// Each record reaches the file as a whole before its function returns.
void json_header(output_file &out);
void json_alert(output_file &out, const tsan_alert &alert);
void json_report(output_file &out, const run_info &run, const report_data &data);

// The record of a file that could not be opened, or not be read to its end.
void json_unreadable(output_file &out, const run_info &run);
