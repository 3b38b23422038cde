// Severity of a log line. Lower is more severe; a line passes when its level is not above the
// threshold of the module that logs it.
#pragma once

enum log_level : int {
  PANIC_level = -4,
  ERR_level = -3,
  CRIT_level = -2,
  WARN_level = -1,
  NORM_level = 0,
  INFO_level = 1,
  DEBUG_level = 2,
  SECTION_level = 64, // threshold of every section at start
  MIN_level = -127,   // always passes, carries no level tag: alerts and STAT records
};

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
