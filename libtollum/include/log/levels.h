// Severities as words, tags and syslog priorities.
#pragma once

#include "log/api.h"

// Finds the level that `word` names, in any letter case: err, error, crit, critical, warn, warning,
// norm, normal, info, debug, dbg, section, sect. Returns 0 and stores it in `level`, or -1 for any
// other word and leaves `level` alone. The panic level has no word.
int match_log_level(const char *word, int *level);

// Name of a level ("error", "warning" ...), "??" when it has none.
const char *log_level_str(int level);

// Tag of a level as it stands in a line ("(ERR)", "(WRN)" ...), "( ? )" when it has none.
const char *get_level_tag(int level);

// syslog(3) priority of a level, LOG_DEBUG when it has none of its own.
int get_syslog_pri(int level);
