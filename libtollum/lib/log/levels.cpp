#include "log/levels.h"

#include <strings.h>
#include <syslog.h>

namespace {

struct level_row {
  int level;
  const char *tag;
  const char *name;
  const char *words[2];
  int priority;
};

// "ctitical" is what the name has always been; scripts that read it know it that way.
constexpr level_row levels[] = {
    {PANIC_level, "(PNC)", "panic", {}, LOG_ALERT},
    {ERR_level, "(ERR)", "error", {"err", "error"}, LOG_ERR},
    {CRIT_level, "(CRI)", "ctitical", {"crit", "critical"}, LOG_CRIT},
    {WARN_level, "(WRN)", "warning", {"warn", "warning"}, LOG_WARNING},
    {NORM_level, "(NRM)", "normal", {"norm", "normal"}, LOG_NOTICE},
    {INFO_level, "(INF)", "info", {"info"}, LOG_INFO},
    {DEBUG_level, "(DBG)", "debug", {"debug", "dbg"}, LOG_DEBUG},
    {SECTION_level, "(SCT)", "section", {"section", "sect"}, LOG_DEBUG},
};
constexpr level_row unknown_level = {0, "( ? )", "??", {}, LOG_DEBUG};

const level_row &find_level(int level) {
  for (const level_row &row : levels)
    if (row.level == level)
      return row;
  return unknown_level;
}

} // namespace

int match_log_level(const char *word, int *level) {
  for (const level_row &row : levels)
    for (const char *name : row.words)
      if (name != nullptr && strcasecmp(word, name) == 0) {
        *level = row.level;
        return 0;
      }
  return -1;
}

const char *log_level_str(int level) {
  return find_level(level).name;
}

const char *get_level_tag(int level) {
  return find_level(level).tag;
}

int get_syslog_pri(int level) {
  return find_level(level).priority;
}
