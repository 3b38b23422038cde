// What a corpus has reached: every kind of alert, every assertion that a stream can fail.
#pragma once

#include "tsanalyze/tsan.h"

void note_reached(const char *what);

// Notes the kinds of alert that a context has counted.
void note_alerts(tsan_t ctx);

// Prints what was reached and what of the things expected was not; false if there was any.
bool print_reached();
