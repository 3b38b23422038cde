#include "audit/indicators.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "audit/presence.h"

namespace {

// What can keep an indicator from being measured.
enum class needs { nothing, pat, pmts, streams, pcrs, constant_rate, pts, all_pmts, table };

struct definition {
  const char *id, *name;
  needs needed;
  audit_limit limit; // AUDIT_LIMITS: none
  bool is_dvb;       // only in that profile
};

// Names as in TR 101 290, tables 5.2.1 to 5.2.3.
constexpr definition definitions[] = {
    {"1.1", "TS_sync_loss", needs::nothing, AUDIT_LIMITS, false},
    {"1.2", "Sync_byte_error", needs::nothing, AUDIT_LIMITS, false},
    {"1.3a", "PAT_error_2", needs::pat, AUDIT_PAT_MS, false},
    {"1.4", "Continuity_count_error", needs::nothing, AUDIT_LIMITS, false},
    {"1.5a", "PMT_error_2", needs::pmts, AUDIT_PMT_MS, false},
    {"1.6", "PID_error", needs::streams, AUDIT_PID_GAP_MS, false},
    {"2.1", "Transport_error", needs::nothing, AUDIT_LIMITS, false},
    {"2.2", "CRC_error", needs::nothing, AUDIT_LIMITS, false},
    {"2.3a", "PCR_repetition_error", needs::pcrs, AUDIT_PCR_MS, false},
    {"2.3b", "PCR_discontinuity_indicator_error", needs::pcrs, AUDIT_LIMITS, false},
    {"2.4", "PCR_accuracy_error", needs::constant_rate, AUDIT_PCR_ACCURACY_NS, false},
    {"2.5", "PTS_error", needs::pts, AUDIT_PTS_MS, false},
    {"2.6", "CAT_error", needs::nothing, AUDIT_LIMITS, false},
    {"3.1a", "NIT_actual_error", needs::table, AUDIT_NIT_MS, true},
    {"3.4a", "Unreferenced_PID", needs::all_pmts, AUDIT_LIMITS, false},
    {"3.5a", "SDT_actual_error", needs::table, AUDIT_SDT_MS, true},
    {"3.6a", "EIT_actual_error", needs::table, AUDIT_EIT_MS, true},
    {"3.8", "TDT_error", needs::table, AUDIT_TDT_MS, true},
};
static_assert(std::size(definitions) == MAX_INDICATORS);

size_t index_of(const char *id) {
  return static_cast<size_t>(
      std::ranges::find_if(definitions,
                           [&](const definition &d) { return strcmp(d.id, id) == 0; }) -
      std::begin(definitions));
}

const char *indicator_of_table(audit_table table) {
  constexpr const char *ids[] = {"", "1.3a", "1.5a", "3.1a", "3.5a", "3.6a", "3.6a", "3.8"};
  return ids[table];
}

// Of an event on a PID that carries tables.
const char *indicator_of_psi_pid(const audit_ctx &a, int32_t pid) {
  switch (a.records[static_cast<size_t>(pid)].role) {
  case psi_role::pat:
    return "1.3a";
  case psi_role::cat:
    return "2.6";
  case psi_role::pmt:
    return "1.5a";
  case psi_role::nit:
    return "3.1a";
  case psi_role::sdt:
    return "3.5a";
  case psi_role::eit:
    return "3.6a";
  case psi_role::tdt:
    return "3.8";
  default:
    return "";
  }
}

const char *indicator_of(const audit_ctx &a, const event &e) {
  switch (e.kind) {
  case AUDIT_SYNC_LOSS:
    return "1.1";
  case AUDIT_SYNC_BYTE:
    return "1.2";
  case AUDIT_CC_LOSS:
  case AUDIT_CC_DUP:
  case AUDIT_CC_ORDER:
  case AUDIT_CC_AF:
    return "1.4";
  case AUDIT_PID_GAP:
    return "1.6";
  case AUDIT_TEI:
    return "2.1";
  case AUDIT_PSI_CRC:
    return "2.2";
  case AUDIT_PCR_GAP:
    return "2.3a";
  case AUDIT_PCR_JUMP:
    return "2.3b";
  case AUDIT_PCR_ACCURACY:
    return "2.4";
  case AUDIT_PTS_GAP:
    return "2.5";
  case AUDIT_CAT_MISSING:
    return "2.6";
  case AUDIT_PID_UNREFERENCED:
    return "3.4a";
  case AUDIT_PSI_GAP:
    return indicator_of_table(e.table);
  case AUDIT_PSI_TABLE:
  case AUDIT_PSI_SCRAMBLED:
    return indicator_of_psi_pid(a, e.pid);
  default:
    return "";
  }
}

bool has_any_pmt(const audit_ctx &a) {
  return std::ranges::any_of(a.tables.order,
                             [&](uint32_t index) { return a.tables.programs[index]->has_pmt; });
}

// A PCR_PID in force at the end had an interval that could be measured.
bool has_pcr_interval(const audit_ctx &a) {
  for (uint32_t pid = 0; pid < TS_PIDS; ++pid)
    if (a.records[pid].is_pcr && a.records[pid].intervals.count != 0)
      return true;
  return false;
}

bool has_block(const audit_ctx &a, bool constant) {
  return std::ranges::any_of(a.clocks, [&](const clock_record *clock) {
    return (constant ? clock->constant_blocks : clock->blocks) != 0;
  });
}

constexpr char no_clock[] = "no clock", no_pmt[] = "no PMT", no_pcr[] = "no PCR",
               too_short[] = "capture shorter than the limit";

const char *why_no_time(const audit_ctx &a, double limit_ms) {
  if (!a.clock.runs)
    return no_clock;
  return a.clock.now.t * 1000 <= limit_ms ? too_short : "";
}

// Why no finding says nothing; empty when it says that all is well.
const char *why_not_measurable(const audit_ctx &a, const definition &d) {
  const double limit = d.limit < AUDIT_LIMITS ? a.cfg.limits[d.limit] : 0;
  const bool is_ott = a.cfg.profile == AUDIT_OTT;
  switch (d.needed) {
  case needs::nothing:
    return "";
  case needs::pat:
    return is_ott ? "" : why_no_time(a, limit);
  case needs::table:
    return why_no_time(a, limit);
  case needs::pmts:
    return a.tables.order.empty() ? no_pmt : is_ott ? "" : why_no_time(a, limit);
  case needs::streams:
    return !has_any_pmt(a) ? no_pmt : why_no_time(a, limit);
  case needs::pcrs:
    return has_pcr_interval(a) ? "" : no_pcr;
  case needs::constant_rate:
    if (!has_pcr_interval(a))
      return no_pcr;
    return has_block(a, true) ? "" : has_block(a, false) ? "rate varies" : too_short;
  case needs::pts:
    return !a.has_pts ? "no PTS" : !a.clock.runs ? no_clock : "";
  case needs::all_pmts:
    if (a.cfg.profile == AUDIT_ATSC)
      return "not in this profile";
    return !has_all_pmts(a) ? no_pmt : !a.clock.runs ? no_clock : "";
  }
  return "";
}

void set_state(const audit_ctx &a, const definition &d, audit_indicator &r) {
  const char *reason = why_not_measurable(a, d);
  if (r.findings != 0) {
    r.state = d.id[0] == '3' ? AUDIT_STATE_WARN : AUDIT_STATE_FAIL;
  } else if (d.limit < AUDIT_LIMITS && a.cfg.limits[d.limit] == 0) {
    r.state = AUDIT_STATE_OFF;
  } else if (reason[0] == '\0') {
    r.state = AUDIT_STATE_PASS;
  } else {
    r.state = AUDIT_STATE_NOT_MEASURABLE;
    if (strcmp(reason, "rate varies") == 0)
      snprintf(r.reason, sizeof r.reason, "rate varies by %.1f packets", a.spread);
    else
      snprintf(r.reason, sizeof r.reason, "%s", reason);
  }
}

const definition *definition_at(const audit_ctx &a, size_t index) {
  for (const definition &d : definitions)
    if ((!d.is_dvb || in_dvb(a)) && index-- == 0)
      return &d;
  return nullptr;
}

} // namespace

uint8_t indicator_index(const audit_ctx &a, const event &e) {
  return static_cast<uint8_t>(index_of(indicator_of(a, e)));
}

const char *indicator_id(uint8_t index) {
  return index < MAX_INDICATORS ? definitions[index].id : nullptr;
}

void count_for_indicator(audit_ctx &a, uint8_t index, const event &finding) {
  if (index >= MAX_INDICATORS)
    return;
  indicator_state &state = a.indicators[index];
  if (state.findings++ == 0 || finding.packet < state.packet) {
    state.packet = finding.packet;
    state.time = finding.time;
    state.pid = finding.pid;
  }
  if (std::isnan(state.worst) || std::abs(finding.value) > std::abs(state.worst))
    state.worst = finding.value;
}

size_t indicator_count(const audit_ctx &a) {
  return static_cast<size_t>(std::ranges::count_if(
      definitions, [&](const definition &d) { return !d.is_dvb || in_dvb(a); }));
}

audit_indicator indicator_record(const audit_ctx &a, size_t index) {
  const definition &d = *definition_at(a, index);
  const indicator_state &state = a.indicators[static_cast<size_t>(&d - definitions)];
  audit_indicator r = {};
  r.id = d.id;
  r.name = d.name;
  r.findings = state.findings;
  r.first_packet = state.packet;
  r.first_pid = state.findings != 0 ? state.pid : -1;
  r.first_time = state.findings != 0 ? state.time : NAN;
  r.worst = state.findings != 0 ? state.worst : NAN;
  r.limit = d.limit < AUDIT_LIMITS ? a.cfg.limits[d.limit] : NAN;
  r.unit = d.limit == AUDIT_PCR_ACCURACY_NS ? "ns" : "ms";
  set_state(a, d, r);
  return r;
}
