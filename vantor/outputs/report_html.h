// --report: the run as one HTML page that needs nothing beside itself.
#pragma once

#include <string>

#include "outputs/report_data.h"
#include "outputs/run_info.h"

// The page. The programs and streams are those of the analyzer as it stands; `data` has been fed
// with all of the run.
std::string report_page(const run_info &run, report_data &data);
