// The alerts in the report.
#pragma once

#include "outputs/report_plot.h"

// Each kind: how often it came, whether it was checked, what it means.
void put_counts(html_text &page, const report_data &data);

// When they came, a lane for each PID and kind; nothing when there were none.
void put_timeline(html_text &page, const time_axis &axis, const report_data &data);

// The first ones of each kind; nothing when there were none.
void put_list(html_text &page, const time_axis &axis, const report_data &data);
