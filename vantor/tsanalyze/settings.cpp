// The settings record: from a settings file, from command-line words, and back as text.

#include <strings.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <libconfig.h>

#include "config/settings.h"
#include "log/statement.h"
#include "syswrap/syswrap.h"
#include "tsanalyze/limits.h"
#include "tsanalyze/tsan.h"

LOG_MODULE(0);

namespace {

// A trace switch, under its name in the dump, its key in a settings file, and the text that stands
// for it in a -k word.
struct trace_switch {
  const char *name;
  const char *key;
  const char *word;
  bool tracking_opt::*flag;
  bool in_all; // set by "all" and cleared by each new -k word
};

constexpr trace_switch trace_switches[] = {
    {"sdt_ignore", "sdt_ignore", "sdt_i", &tracking_opt::sdt_ignore, true},
    {"misc_ignore", "misc_ignore", "misc_i", &tracking_opt::misc_ignore, true},
    {"pdts_update", "pdts_update", "pdts_u", &tracking_opt::pdts_update, true},
    {"pat_pmt_pkt", "pat_pmt_pkt", "pat_pmt", &tracking_opt::pat_pmt_pkt, true},
    {"pcr_update", "pcr_update", "pcr_u", &tracking_opt::pcr_update, true},
    {"cc_track", "cc", "cc_t", &tracking_opt::cc_track, false},
    {"pmt_diff", "pmt_diff", "pmt_d", &tracking_opt::pmt_diff, false},
    {"pat_diff", "pat_diff", "pat_d", &tracking_opt::pat_diff, false},
};

// True only for a key that is there, is a boolean, and is true.
bool lookup_true(const config_setting_t *group, const char *key) {
  int value = 0;
  return config_setting_lookup_bool(group, key, &value) == CONFIG_TRUE && value != 0;
}

struct size_key {
  const char *key;
  size_t tsan_config::*field;
  size_t dflt;
};

constexpr size_key size_keys[] = {
    {"max_skipped_pkts", &tsan_config::max_skip_pkts, D_MAX_NO_ANALYZE},
    {"max_pdts_delta_ms", &tsan_config::max_pdts_delta, D_MAX_DELTA_MS},
    {"max_pcr_delta_ms", &tsan_config::max_pcr_delta, 0},
    {"pcr_freq_ms", &tsan_config::pcr_freq_ms, 0},
    {"dump_stats_period", &tsan_config::dump_stats_period, 0},
    {"max_ndat_pcount", &tsan_config::max_ndat_pcount, D_PCOUNT},
};

int load_sizes(const config_setting_t *section, tsan_config *cfg) {
  for (const size_key &size : size_keys)
    if (const int rc = load_config_setting_size(section, size.key, &(cfg->*size.field), size.dflt))
      return rc;
  return 0;
}

void load_cc(const config_setting_t *cc, tsan_config *cfg) {
  cfg->cc_track = lookup_true(cc, "track");
  int reset_s = 0;
  config_setting_lookup_int(cc, "max_zreset_time", &reset_s);
  // The product is one of 32 bits.
  cfg->cc_max_ms0_ms = static_cast<int32_t>(static_cast<uint32_t>(reset_s) * 1000u);
}

// A setting `-A name=value` works on.
void apply_value(const char *name, long value, tsan_config *cfg) {
  struct size_word {
    const char *name;
    size_t tsan_config::*field;
  };
  constexpr size_word size_words[] = {
      {"skipped_pkts", &tsan_config::max_skip_pkts},
      {"pdts_delta", &tsan_config::max_pdts_delta},
      {"pcr_delta", &tsan_config::max_pcr_delta},
      {"pcr_freq", &tsan_config::pcr_freq_ms},
  };
  for (const size_word &word : size_words)
    if (strcmp(name, word.name) == 0)
      cfg->*word.field = static_cast<size_t>(value);
  if (strcmp(name, "max_zreset_time") == 0)
    cfg->cc_max_ms0_ms = value;
  if (strcmp(name, "cc_track") == 0)
    cfg->cc_track = value > 0;
}

bool is_word(const char *text, const char *word, const char *synonym) {
  return strcasecmp(text, word) == 0 || strcasecmp(text, synonym) == 0;
}

const char *yes_no(bool value) {
  return value ? "yes" : "no";
}

} // namespace

void tsan_default_config(tsan_config *cfg) {
  *cfg = {};
  cfg->is_enabled = true;
  cfg->max_skip_pkts = 5000;
  cfg->cc_track = true;
  cfg->cc_max_ms0_ms = 30;
}

int tsan_load_config(const config_setting_t *section, tsan_config *cfg) {
  cfg->is_enabled = lookup_true(section, "enabled");
  if (!cfg->is_enabled) {
    LOG(g_log, DEBUG_level, "%s: TSAN disabled, skipping further settings\n", __func__);
    return 0;
  }
  cfg->access_log_alerts = lookup_true(section, "access_log_alerts");

  int rc = load_config_setting_str(section, "source_tag", cfg->source, sizeof cfg->source - 1, "");
  if (rc == 0)
    rc = load_sizes(section, cfg);
  if (rc != 0) {
    LOG(g_log, ERR_level, "%s: failed to load config, rc=%d\n", __func__, rc);
    return rc;
  }

  if (const config_setting_t *cc = config_setting_get_member(section, "cc"))
    load_cc(cc, cfg);
  // `track` only makes the switches beside it count; what it holds itself does not matter.
  if (config_setting_get_member(section, "track"))
    for (const trace_switch &trace : trace_switches)
      cfg->trk.*trace.flag = lookup_true(section, trace.key);
  return 0;
}

int tsan_cli_opt(const char *opt, tsan_config *cfg) {
  const calloc_ptr<char> copy{strdup(opt)};
  if (!copy) {
    const int err = errno;
    LOG(g_log, ERR_level, "%s: strdup() ERROR(%d): %s\n", __func__, err, strerror(err));
    return err;
  }

  char *name = copy.get();
  long value = 0;
  if (is_word(name, "on", "enable")) {
    cfg->is_enabled = true;
  } else if (is_word(name, "off", "disable")) {
    cfg->is_enabled = false;
  } else {
    char *equals = strchr(name, '=');
    if (!equals) {
      LOG(g_log, ERR_level, "%s: invalid option string format: %s\n", __func__, name);
      return EINVAL;
    }
    *equals = '\0';
    value = atol(equals + 1);
    if (value < 0) {
      LOG(g_log, ERR_level, "%s: invalid parameter value: %s/%ld\n", __func__, equals + 1, value);
      return EINVAL;
    }
    apply_value(name, value, cfg);
  }
  LOG(g_log, DEBUG_level, "%s: %s=%ld OK\n", __func__, name, value);
  return 0;
}

int tsan_xtrack_opt(const char *opt, tsan_config *cfg) {
  const bool all = strcasecmp(opt, "all") == 0;
  for (const trace_switch &trace : trace_switches) {
    bool &flag = cfg->trk.*trace.flag;
    if (trace.in_all)
      flag = all;
    if (!all && strstr(opt, trace.word))
      flag = true;
  }
  return 0;
}

void tsan_dump_config(FILE *out, const char *name, const tsan_config *cfg) {
  flockfile(out);
  fprintf(out, "%s: %s\n", name, cfg->is_enabled ? "" : "disabled");
  if (cfg->is_enabled) {
    fprintf(out, "\tsource:                [%s]\n", cfg->source);
    fprintf(out, "\tskipped packets:       %zu\n", cfg->max_skip_pkts);
    fprintf(out, "\tNDAT p-count:          %zu\n", cfg->max_ndat_pcount);
    if (cfg->max_pdts_delta != 0)
      fprintf(out, "\tPTS/DTS delta:         %zu (ms)\n", cfg->max_pdts_delta);
    if (cfg->max_pcr_delta != 0)
      fprintf(out, "\tPCR delta:             %zu (ms)\n", cfg->max_pcr_delta);
    if (cfg->pcr_freq_ms != 0)
      fprintf(out, "\tPCR frequency:         %zu (ms)\n", cfg->pcr_freq_ms);
    if (cfg->dump_stats_period != 0)
      fprintf(out, "\tdump stats every:      %zu (sec)\n", cfg->dump_stats_period);
    fprintf(out, "\tvalidate CC sequence:  %s\n", yes_no(cfg->cc_track));
    if (cfg->cc_track && cfg->cc_max_ms0_ms != 0)
      fprintf(out, "\tCC reset threshold:    %ld (ms)\n", cfg->cc_max_ms0_ms);
    for (const trace_switch &trace : trace_switches)
      fprintf(out, "\tT:%s:%*s%s\n", trace.name, static_cast<int>(20 - strlen(trace.name)), "",
              yes_no(cfg->trk.*trace.flag));
    // The capitals mark the states that differ from the default.
    fprintf(out, "\taccess-log-alerts:     %s\n", cfg->access_log_alerts ? "YES" : "no");
    fprintf(out, "\twrite-to-log:          %s\n", cfg->no_rlog ? "NO" : "yes");
  }
  funlockfile(out);
}
