#include "tsa/baseline_file.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "audit/audit.h"
#include "outputs/checks.h"
#include "tsa/load_config.h"

namespace {

enum : int64_t { PID_MOST = 8191, PROGRAM_MOST = 65535, COUNT_MOST = INT64_MAX };

// Of the two analyzers no kind has the name of another.
enum class owner { none, checks, audit };

owner owner_of(std::string_view kind) {
  for (int i = 0; i < AUDIT_KINDS; ++i)
    if (kind == audit_kind_name(static_cast<audit_kind>(i)))
      return owner::audit;
  const auto is_kind = [&](tsan_alert_kind known) { return kind == tsan_alert_name(known); };
  return std::ranges::any_of(checked_kinds, is_kind) ? owner::checks : owner::none;
}

bool is_digits(std::string_view text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

// YYYY-MM-DD
bool read_day(const std::string &text, std::chrono::year_month_day &day) {
  const std::string_view all = text;
  if (all.size() != 10 || all[4] != '-' || all[7] != '-' || !is_digits(all.substr(0, 4)) ||
      !is_digits(all.substr(5, 2)) || !is_digits(all.substr(8)))
    return false;
  day = std::chrono::year(atoi(text.c_str())) /
        std::chrono::month(static_cast<unsigned>(atoi(text.c_str() + 5))) /
        std::chrono::day(static_cast<unsigned>(atoi(text.c_str() + 8)));
  return day.ok();
}

// "1:02:03.456", "2:03.456" or "3.456", in seconds.
bool read_clock(std::string_view text, double &seconds) {
  seconds = 0;
  for (size_t colon; (colon = text.find(':')) != std::string_view::npos;) {
    if (!is_digits(text.substr(0, colon)) || colon > 9)
      return false;
    seconds = (seconds + atoi(text.data())) * 60;
    text.remove_prefix(colon + 1);
  }
  const size_t point = std::min(text.find('.'), text.size());
  const bool is_number = is_digits(text.substr(0, point)) && text.size() < 32 &&
                         (point == text.size() || is_digits(text.substr(point + 1)));
  seconds += is_number ? strtod(text.data(), nullptr) : 0;
  return is_number;
}

struct baseline_reader {
  const char *path;
  bool is_audit;
  baseline &to;

  bool refuse(const config_setting_t *at, const char *what) const {
    const char *name = config_setting_name(at);
    const char *included = config_setting_source_file(at);
    fprintf(stderr, "%s:%u: %s%s%s%s\n", included ? included : path, config_setting_source_line(at),
            name ? "[" : "", name ? name : "", name ? "] " : "", what);
    return false;
  }

  bool read_text(const config_setting_t *at, std::string &text) const {
    if (config_setting_type(at) != CONFIG_TYPE_STRING || *config_setting_get_string(at) == '\0')
      return refuse(at, "is no text");
    text = config_setting_get_string(at);
    const auto is_control = [](char c) { return static_cast<uint8_t>(c) < ' ' || c == 0x7F; };
    return std::ranges::none_of(text, is_control) || refuse(at, "has more than one line");
  }

  template <typename number>
  bool read_number(const config_setting_t *at, int64_t least, int64_t most, number &value) const {
    const int type = config_setting_type(at);
    const int64_t read = config_setting_get_int64(at);
    if ((type != CONFIG_TYPE_INT && type != CONFIG_TYPE_INT64) || read < least || read > most)
      return refuse(at, "is no number that can be");
    value = static_cast<number>(read);
    return true;
  }

  bool read_time(const config_setting_t *at, double &seconds) const {
    if (config_setting_type(at) == CONFIG_TYPE_STRING) {
      if (!read_clock(config_setting_get_string(at), seconds))
        return refuse(at, "is no time; it reads \"0:01:02.345\", or is a number of seconds");
      return true;
    }
    const bool is_float = config_setting_type(at) == CONFIG_TYPE_FLOAT;
    int64_t whole = 0;
    if (!is_float && !read_number(at, 0, COUNT_MOST, whole))
      return false;
    seconds = is_float ? config_setting_get_float(at) : static_cast<double>(whole);
    return seconds >= 0 || refuse(at, "is no number that can be");
  }

  bool read_until(const config_setting_t *at, allowed_finding &entry) const {
    std::string text;
    if (!read_text(at, text))
      return false;
    if (!read_day(text, entry.until))
      return refuse(at, "is no day; it reads \"2026-12-31\"");
    entry.is_expired = std::chrono::sys_days(entry.until) < today();
    return true;
  }

  bool read_key(const config_setting_t *at, allowed_finding &entry) const {
    const std::string_view key = config_setting_name(at);
    if (key == "kind")
      return read_text(at, entry.kind) &&
             (owner_of(entry.kind) != owner::none || refuse(at, "is no kind of alert or finding"));
    if (key == "reason")
      return read_text(at, entry.reason);
    if (key == "until")
      return read_until(at, entry);
    if (key == "pid")
      return read_number(at, 0, PID_MOST, entry.pid);
    if (key == "program_number")
      return read_number(at, 0, PROGRAM_MOST, entry.program_number);
    if (key == "most")
      return read_number(at, 1, COUNT_MOST, entry.most);
    if (key == "from")
      return read_time(at, entry.from);
    if (key == "to")
      return read_time(at, entry.to);
    return refuse(at, "is no key of an entry");
  }

  bool read_entry(const config_setting_t *at) const {
    if (!config_setting_is_group(at))
      return refuse(at, "an entry is a group: { kind = ...; reason = ...; until = ...; }");
    allowed_finding entry;
    for (unsigned i = 0; const auto *key = config_setting_get_elem(at, i); ++i)
      if (!read_key(key, entry))
        return false;
    // A group begins where its brace is; the line of its first key is what people look for.
    const auto *first = config_setting_get_elem(at, 0);
    entry.line = static_cast<int>(config_setting_source_line(first ? first : at));
    if (entry.kind.empty() || entry.reason.empty() || !entry.until.ok())
      return refuse(at, "an entry needs kind, reason and until");
    if (entry.from > entry.to)
      return refuse(at, "from is behind to");
    if (owner_of(entry.kind) == (is_audit ? owner::audit : owner::checks))
      to.entries.push_back(std::move(entry));
    return true;
  }

  bool read_all(const config_setting_t *root) const {
    for (unsigned i = 0; const auto *key = config_setting_get_elem(root, i); ++i)
      if (strcmp(config_setting_name(key), "allowed") != 0)
        return refuse(key, "is no key of a baseline; there is \"allowed\"");
    const auto *list = config_setting_get_member(root, "allowed");
    if (!list) {
      fprintf(stderr, "%s: there is no list \"allowed\"\n", path);
      return false;
    }
    if (!config_setting_is_list(list))
      return refuse(list, "is no list: allowed = ( {...}, {...} )");
    for (unsigned i = 0; const auto *entry = config_setting_get_elem(list, i); ++i)
      if (!read_entry(entry))
        return false;
    return true;
  }
};

} // namespace

int load_baseline(const char *path, bool is_audit, baseline &to) {
  to = {};
  to.path = path;
  const settings_file file = open_settings(path);
  if (!file) {
    fprintf(stderr, "Cannot read [%s]: %s\n", path, errno != 0 ? strerror(errno) : "it is no file");
    return -1;
  }
  config_t parsed;
  config_init(&parsed);
  bool is_read = false;
  try {
    is_read = config_read(&parsed, file.get()) == CONFIG_TRUE;
    const char *included = config_error_file(&parsed);
    if (!is_read)
      fprintf(stderr, "%s:%d: %s\n", included ? included : path, config_error_line(&parsed),
              config_error_text(&parsed));
    is_read = is_read && baseline_reader{path, is_audit, to}.read_all(config_root_setting(&parsed));
  } catch (const std::bad_alloc &) {
    fprintf(stderr, "No memory for [%s]\n", path);
    is_read = false;
  }
  config_destroy(&parsed);
  return is_read ? 0 : -1;
}
