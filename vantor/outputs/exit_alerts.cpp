#include "outputs/exit_alerts.h"

#include <cerrno>
#include <cstdio>
#include <string_view>

#include "outputs/exit_status.h"

// The bit of a kind, 0 for an unknown name.
static unsigned kind_bit(std::string_view name, unsigned not_checked) {
  for (unsigned kind = 0; kind < TSAN_ALERT_KINDS; ++kind)
    if (name == tsan_alert_name(static_cast<tsan_alert_kind>(kind)))
      return 1u << kind;
  return name == "NOT-CHECKED" ? not_checked : 0;
}

int exit_alerts::choose(const char *kinds) {
  if (!kinds) {
    chosen = ALL_KINDS;
    return 0;
  }
  for (std::string_view rest = kinds;;) {
    const std::string_view name = rest.substr(0, rest.find(','));
    const unsigned bit = kind_bit(name, NOT_CHECKED);
    if (bit == 0) {
      fprintf(stderr, "Unknown kind of alert in --exit-alerts: [%.*s]\n",
              static_cast<int>(name.size()), name.data());
      return EINVAL;
    }
    chosen |= bit;
    if (name.size() == rest.size())
      return 0;
    rest.remove_prefix(name.size() + 1);
  }
}

int exit_alerts::status(int status, bool unreadable) const {
  const bool is_hit = unreadable ? is_on() : (chosen & raised) != 0;
  return status == EXIT_STATUS_OK && is_hit ? EXIT_STATUS_ALERTS : status;
}
