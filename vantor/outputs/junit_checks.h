// --junit of the classic checks.
#pragma once

#include "outputs/checked_run.h"
#include "outputs/output_file.h"

// Whether the capture could be checked is a case, and each check is one.
void junit_of_checks(output_file &out, const checked_run &run);
