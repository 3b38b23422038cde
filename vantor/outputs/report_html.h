// --report: the run as one HTML page that needs nothing beside itself.
#pragma once

#include "outputs/checked_run.h"
#include "outputs/output_file.h"

// Writes the page; when memory is refused, what there is of it, and that it is incomplete.
void report_page(output_file &out, const checked_run &run);
