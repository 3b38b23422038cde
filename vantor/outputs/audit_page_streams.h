// Programs, PIDs, and what was measured of them, on the page of an audit.
#pragma once

#include "outputs/audited_run.h"

void put_streams(html_text &page, const time_axis &axis, const audited_run &run);
