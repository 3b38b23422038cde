// The checks and the alerts in the report.
#pragma once

#include "outputs/checked_run.h"
#include "outputs/report_plot.h"

// Each kind: how often it came, what was looked at, what it means.
void put_checks(html_text &page, const checked_run &run);

// When they came, a lane for each PID and kind; nothing when there were none.
void put_timeline(html_text &page, const time_axis &axis, const report_data &data);

// The first ones of each kind; nothing when there were none.
void put_list(html_text &page, const time_axis &axis, const checked_run &run);
