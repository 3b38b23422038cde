// --report of an audit: the run as one HTML page that needs nothing beside itself.
#pragma once

#include "outputs/audited_run.h"
#include "outputs/output_file.h"

// Writes the page; when memory is refused, what there is of it, and that it is incomplete.
void audit_page(output_file &out, const audited_run &run);
