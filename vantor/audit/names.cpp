#include <algorithm>
#include <cerrno>
#include <iterator>

#include "audit/audit.h"
#include "misc/sized_record.h"

namespace {

constexpr const char *profiles[] = {"mpeg", "dvb", "atsc", "ott"};
constexpr const char *limits[] = {"pat_ms",        "pmt_ms",     "pcr_ms",   "pcr_accuracy_ns",
                                  "pts_ms",        "pid_gap_ms", "delay_ms", "video_step_ms",
                                  "audio_step_ms", "nit_ms",     "sdt_ms",   "eit_ms",
                                  "tdt_ms"};
constexpr double limit_values[] = {500, 500, 100,   500,  700,  1000, 1000,
                                   700, 300, 10000, 2000, 2000, 30000};
constexpr const char *severities[] = {"note", "warn", "fail"};
constexpr const char *tables[] = {"", "PAT", "PMT", "NIT", "SDT", "EIT-P", "EIT-F", "TDT"};
constexpr const char *verdicts[] = {"pass", "fail", "incomplete", "nothing-checked"};
constexpr const char *states[] = {"pass", "fail", "warn", "off", "not-measurable"};

constexpr struct {
  const char *name;
  audit_severity severity;
} kinds[] = {
    {"SYNC-LOSS", AUDIT_FAIL},    {"SYNC-BYTE", AUDIT_FAIL},     {"TEI", AUDIT_FAIL},
    {"CC-LOSS", AUDIT_FAIL},      {"CC-DUP", AUDIT_FAIL},        {"CC-ORDER", AUDIT_FAIL},
    {"CC-AF", AUDIT_FAIL},        {"PSI-CRC", AUDIT_FAIL},       {"PSI-SYNTAX", AUDIT_FAIL},
    {"PSI-TABLE", AUDIT_FAIL},    {"PSI-SCRAMBLED", AUDIT_FAIL}, {"PSI-VERSION", AUDIT_FAIL},
    {"PSI-GAP", AUDIT_FAIL},      {"PCR-GAP", AUDIT_FAIL},       {"PCR-JUMP", AUDIT_FAIL},
    {"PCR-ACCURACY", AUDIT_FAIL}, {"PTS-GAP", AUDIT_FAIL},       {"STAMP-LATE", AUDIT_FAIL},
    {"STAMP-DELAY", AUDIT_FAIL},  {"STAMP-BASE", AUDIT_WARN},    {"STAMP-ORDER", AUDIT_FAIL},
    {"STAMP-BACK", AUDIT_FAIL},   {"STAMP-JUMP", AUDIT_FAIL},    {"PID-GAP", AUDIT_FAIL},
    {"SCRAMBLED", AUDIT_FAIL},    {"CAT-MISSING", AUDIT_FAIL},   {"RATE-LOSS", AUDIT_FAIL},
    {"AFC-RESERVED", AUDIT_WARN}, {"AF-SYNTAX", AUDIT_WARN},     {"PID-UNREFERENCED", AUDIT_WARN},
    {"LEADING", AUDIT_NOTE},      {"PAT-CHANGE", AUDIT_NOTE},    {"PMT-CHANGE", AUDIT_NOTE},
    {"PID-ABSENT", AUDIT_NOTE},
};
static_assert(std::size(kinds) == AUDIT_KINDS && std::size(limits) == AUDIT_LIMITS &&
              std::size(limit_values) == AUDIT_LIMITS && std::size(tables) == AUDIT_TABLES);
static_assert(+AUDIT_LIMITS <= AUDIT_LIMITS_ROOM && +AUDIT_KINDS <= AUDIT_KINDS_ROOM);

template <typename Id, size_t count> const char *name_of(const char *const (&names)[count], Id id) {
  const auto i = static_cast<size_t>(id);
  return i < count ? names[i] : nullptr;
}

} // namespace

int audit_default_config(audit_profile profile, audit_config *cfg) {
  if (static_cast<size_t>(profile) >= AUDIT_PROFILES)
    return EINVAL;
  audit_config filled = {};
  filled.profile = profile;
  std::ranges::copy(limit_values, filled.limits);
  if (profile == AUDIT_ATSC) {
    filled.limits[AUDIT_PAT_MS] = 100;
    filled.limits[AUDIT_PMT_MS] = 400;
  }
  return give_record(filled, cfg);
}

const char *audit_profile_name(audit_profile profile) {
  return name_of(profiles, profile);
}

const char *audit_limit_name(audit_limit limit) {
  return name_of(limits, limit);
}

const char *audit_kind_name(audit_kind kind) {
  return static_cast<size_t>(kind) < AUDIT_KINDS ? kinds[kind].name : nullptr;
}

const char *audit_severity_name(audit_severity severity) {
  return name_of(severities, severity);
}

const char *audit_table_name(audit_table table) {
  return table == AUDIT_NO_TABLE ? nullptr : name_of(tables, table);
}

audit_severity audit_kind_severity(audit_kind kind) {
  return static_cast<size_t>(kind) < AUDIT_KINDS ? kinds[kind].severity : AUDIT_NOTE;
}

const char *audit_verdict_name(audit_verdict verdict) {
  return name_of(verdicts, verdict);
}

const char *audit_state_name(audit_state state) {
  return name_of(states, state);
}
