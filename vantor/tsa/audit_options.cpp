#include "tsa/audit_options.h"

#include <strings.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "tsa/config.h"
#include "tsa/option_table.h"

namespace {

constexpr double LIMIT_MOST = 1e9; // ms: eleven days

// The number of a name, among `count`.
template <typename number>
std::optional<number> number_of(std::string_view word, const char *(*name)(number), int count) {
  for (int i = 0; i < count; ++i)
    if (word == name(static_cast<number>(i)))
      return static_cast<number>(i);
  return {};
}

// A number that is all of the word.
template <typename number> std::optional<number> read_number(const char *word) {
  number value;
  const char *end = word + strlen(word);
  const auto [stop, error] = std::from_chars(word, end, value);
  return error == std::errc() && stop == end ? std::optional(value) : std::nullopt;
}

// The same with decimals. (std::from_chars of a double brings in libraries that take more address
// space than the rest of the program; strtod alone would take blanks and words.)
std::optional<double> read_decimal(const char *word) {
  char *stop;
  const double value = strtod(word, &stop);
  const bool is_all = stop != word && *stop == '\0' && word[strspn(word, "-.0123456789eE")] == '\0';
  return is_all ? std::optional(value) : std::nullopt;
}

[[gnu::format(printf, 1, 2)]] int refuse(const char *format, ...) {
  va_list args;
  va_start(args, format);
  vfprintf(stderr, format, args);
  va_end(args);
  fputc('\n', stderr);
  return EINVAL;
}

// name=value of the command line.
int set_limit(const char *word) {
  const char *equals = strchr(word, '=');
  if (!equals)
    return refuse("--limit: [%s] is not of the form name=value", word);
  return audit_set_limit(g_cfg.audit, "--limit", std::string(word, equals).c_str(), equals + 1);
}

int choose_exit_kinds(const char *words) {
  if (!words) {
    g_cfg.audit.exit_on_fail = true;
    return 0;
  }
  for (std::string_view rest = words;;) {
    const std::string_view name = rest.substr(0, rest.find(','));
    const auto kind = number_of(name, audit_kind_name, AUDIT_KINDS);
    if (!kind)
      return refuse("--exit-alerts: unknown kind of finding [%.*s]", static_cast<int>(name.size()),
                    name.data());
    g_cfg.audit.exit_kinds |= uint64_t{1} << *kind;
    if (name.size() == rest.size())
      return 0;
    rest.remove_prefix(name.size() + 1);
  }
}

int set_alerts(const char *word) {
  const bool is_on = strcasecmp(word, "on") == 0;
  if (!is_on && strcasecmp(word, "off") != 0)
    return refuse("-a: [%s] is neither on nor off", word);
  g_cfg.tsa.access_log_alerts = is_on;
  return 0;
}

int set_first(const char *word) {
  const auto packet = read_number<off_t>(word);
  if (!packet || *packet < 1)
    return refuse("-r: [%s] is no packet number (1, 2 ...)", word);
  g_cfg.start_rec = *packet;
  return 0;
}

int set_most(const char *word) {
  const auto packets = read_number<size_t>(word);
  if (!packets)
    return refuse("-m: [%s] is no number of packets", word);
  g_cfg.max_records = *packets;
  return 0;
}

} // namespace

int audit_set_profile(audit_options &options, const char *where, const char *word) {
  options.profile = number_of(word, audit_profile_name, AUDIT_PROFILES);
  if (!options.profile)
    return refuse("%s: unknown profile [%s]; there are mpeg, dvb, atsc and ott", where, word);
  return 0;
}

int audit_set_packet_size(audit_options &options, const char *where, const char *word) {
  constexpr size_t sizes[] = {188, 192, 204, 208};
  const auto size = strcmp(word, "auto") == 0 ? 0 : read_number<size_t>(word);
  if (!size || (*size == 0 && word[0] != 'a') || (*size != 0 && !std::ranges::count(sizes, *size)))
    return refuse("%s: [%s] is no packet size; there are auto, 188, 192, 204 and 208", where, word);
  options.packet_size = *size;
  return 0;
}

int audit_set_limit(audit_options &options, const char *where, const char *name,
                    const char *value) {
  const auto limit = number_of(name, audit_limit_name, AUDIT_LIMITS);
  if (!limit)
    return refuse("%s: unknown limit [%s]", where, name);
  const auto number = read_decimal(value);
  if (!number || !(*number >= 0 && *number <= LIMIT_MOST))
    return refuse("%s: [%s] is no value for %s; 0 switches its check off", where, value, name);
  options.limits[*limit] = *number;
  return 0;
}

std::optional<int> apply_audit_option(int opt, const char *arg) {
  switch (opt) {
  case 'A':
  case 'k':
  case 's':
    return refuse("-%c belongs to the checks that --audit takes the place of", opt);
  case 'a':
    return set_alerts(arg);
  case 'r':
    return set_first(arg);
  case 'm':
    return set_most(arg);
  case OPT_AUDIT:
    return arg ? audit_set_profile(g_cfg.audit, "--audit", arg) : 0;
  case OPT_PACKET_SIZE:
    return audit_set_packet_size(g_cfg.audit, "--packet-size", arg);
  case OPT_LIMIT:
    return set_limit(arg);
  case OPT_EXIT_ALERTS:
    return choose_exit_kinds(arg);
  case OPT_CLIP:
    g_cfg.audit.clips = arg;
    return 0;
  default:
    return {};
  }
}

std::optional<int> refuse_audit_option(int opt) {
  switch (opt) {
  case OPT_PACKET_SIZE:
    return refuse("--packet-size needs --audit");
  case OPT_LIMIT:
    return refuse("--limit needs --audit");
  case OPT_CLIP:
    return refuse("--clip needs --audit");
  default:
    return {};
  }
}

audit_config make_audit_config(const audit_options &options) {
  audit_config cfg = {};
  cfg.size = sizeof cfg;
  audit_default_config(options.profile.value_or(AUDIT_MPEG), &cfg);
  for (size_t i = 0; i < AUDIT_LIMITS; ++i)
    cfg.limits[i] = options.limits[i].value_or(cfg.limits[i]);
  return cfg;
}

void dump_audit_config(FILE *out) {
  const audit_config cfg = make_audit_config(g_cfg.audit);
  const size_t size = g_cfg.audit.packet_size;
  flockfile(out);
  fprintf(out, "audit: \n\tsource: [%s]\n\tprofile: %s\n\tpacket size: %s\n", g_cfg.tsa.source,
          audit_profile_name(cfg.profile), size != 0 ? std::to_string(size).c_str() : "auto");
  for (int i = 0; i < AUDIT_LIMITS; ++i)
    fprintf(out, "\t%s: %g\n", audit_limit_name(static_cast<audit_limit>(i)), cfg.limits[i]);
  funlockfile(out);
}
