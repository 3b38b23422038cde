// What an alert says, in words.
#pragma once

#include "outputs/text_out.h"
#include "tsanalyze/readout.h"

// What alerts of a kind mean.
const char *alert_meaning(tsan_alert_kind kind);

// What happened, without where: "counter 5, then 7". Empty where a kind has nothing to add.
short_text alert_detail(const tsan_alert &alert);
