// Indicators and findings on the page of an audit.
#pragma once

#include "outputs/audited_run.h"

// Each indicator with its state, and below it what has none. They lead to their findings.
void put_indicators(html_text &page, const audited_run &run);

// When findings came, a lane for each PID and kind; nothing when there were none.
void put_lanes(html_text &page, const time_axis &axis, const audited_run &run);

// The first ones of each indicator, or of a kind that has none; nothing when there were none.
void put_findings(html_text &page, const time_axis &axis, const audited_run &run);
