// Severities as tags and syslog priorities.
#pragma once

// Tag of a level as it stands in a line ("(ERR)", "(WRN)" ...), "( ? )" when it has none.
const char *get_level_tag(int level);

// syslog(3) priority of a level, LOG_DEBUG when it has none of its own.
int get_syslog_pri(int level);
