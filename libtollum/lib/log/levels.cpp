#include "log/levels.h"

#include <syslog.h>

#include "log/log.h"

namespace {

struct level_row {
  int level;
  const char *tag;
  int priority;
};

constexpr level_row levels[] = {
    {PANIC_level, "(PNC)", LOG_ALERT}, {ERR_level, "(ERR)", LOG_ERR},
    {CRIT_level, "(CRI)", LOG_CRIT},   {WARN_level, "(WRN)", LOG_WARNING},
    {NORM_level, "(NRM)", LOG_NOTICE}, {INFO_level, "(INF)", LOG_INFO},
    {DEBUG_level, "(DBG)", LOG_DEBUG}, {SECTION_level, "(SCT)", LOG_DEBUG},
};
constexpr level_row unknown_level = {0, "( ? )", LOG_DEBUG};

const level_row &find_level(int level) {
  for (const level_row &row : levels)
    if (row.level == level)
      return row;
  return unknown_level;
}

} // namespace

const char *get_level_tag(int level) {
  return find_level(level).tag;
}

int get_syslog_pri(int level) {
  return find_level(level).priority;
}
