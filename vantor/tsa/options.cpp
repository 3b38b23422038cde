#include "tsa/options.h"

#include <strings.h>
#include <syslog.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "input/packet_file.h"
#include "log/statement.h"
#include "meta/app_info.h"
#include "outputs/exit_status.h"
#include "syswrap/syswrap.h"
#include "tsa/audit_settings.h"
#include "tsa/baseline_file.h"
#include "tsa/config.h"
#include "tsa/load_config.h"
#include "tsa/option_table.h"
#include "tsa/usage.h"

LOG_MODULE(0);

config g_cfg;

namespace {

// Copies at most size - 1 characters; the rest of `dst` reads as zeros.
template <size_t size> void copy_text(char (&dst)[size], const char *src) {
  strncpy(dst, src, size - 1);
  dst[size - 1] = '\0';
}

void print_version() {
  fprintf(stderr, "%s\n", get_custom_app_info(g_app_name, g_app_descr, nullptr));
}

// Shows the help when the word "--help" is among the options; its abbreviations are those of
// others, or unknown. Looks for --audit, which decides what other options mean.
void look_ahead(int argc, char **argv) {
  opterr = 0; // faults are told by who reads the line next
  for (int opt; (opt = getopt_long(argc, argv, short_options_in_order, long_options_and_help,
                                   nullptr)) != -1;)
    if (opt == OPT_AUDIT)
      g_cfg.audit.is_on = true;
    else if (opt == OPT_HELP && strcmp(argv[optind - 1], "--help") == 0)
      show_help(argv[0]);
  opterr = 1;
  reset_getopt_state();
}

void dump_settings() {
  if (g_cfg.audit.is_on)
    dump_audit_config(stderr);
  else
    tsan_dump_config(stderr, "analyzer", &g_cfg.tsa);
}

int load_settings_of(const char *path) {
  return g_cfg.audit.is_on ? load_audit_settings(path, g_cfg) : load_config(path, &g_cfg.tsa);
}

// Settings files are read before any other option acts, so that every option overrides them
// wherever it stands on the line.
int first_pass(int argc, char **argv) {
  for (int opt; (opt = getopt_long(argc, argv, short_options, long_options, nullptr)) != -1;) {
    switch (opt) {
    case 'v':
      ++g_cfg.verbosity;
      break;
    case 'V':
      print_version();
      exit(EXIT_STATUS_USAGE);
    case '?':
      usage(argv[0], EXIT_STATUS_USAGE);
    case 'C':
      if (load_settings_of(optarg) != 0)
        return -1;
      break;
    default:
      break;
    }
  }
  return 0;
}

int set_max_skip(const char *text) {
  const auto packets = static_cast<size_t>(atol(text));
  if (packets == 0 || packets > 100000) {
    fprintf(stderr, "-S value is too small/big\n");
    return EXIT_STATUS_RANGE;
  }
  g_cfg.tsa.max_skip_pkts = packets;
  return 0;
}

int set_start_rec(const char *text) {
  const long record = atol(text);
  if (record <= 0) {
    fprintf(stderr, "Bad -r value (%ld)\n", record);
    return EXIT_STATUS_RANGE;
  }
  if (record - 1 > std::numeric_limits<off_t>::max() / off_t{PKT_SIZE}) {
    fprintf(stderr, "Bad -r value (%s): no file is that long\n", text);
    return EXIT_STATUS_RANGE;
  }
  g_cfg.start_rec = record;
  return 0;
}

int set_syslog(const char *name) {
  const int facility = str2fac(name);
  if (facility <= 0) {
    fprintf(stderr, "Invalid/un-supported syslog facility: %s\n", name);
    return EXIT_STATUS_INVAL;
  }
  config_syslog(g_access_log, g_app_name, LOG_CONS | LOG_ODELAY, facility);
  return 0;
}

int set_tracking(const char *word) {
  if (tsan_xtrack_opt(word, &g_cfg.tsa) == 0)
    return 0;
  fprintf(stderr, "Invalid tracking option: %s\n", word);
  return EXIT_STATUS_INVAL;
}

int apply_option(int opt, const char *arg) {
  const auto done = g_cfg.audit.is_on ? apply_audit_option(opt, arg) : refuse_audit_option(opt);
  if (done)
    return *done;
  tsan_config &tsa = g_cfg.tsa;
  switch (opt) {
  case 'S':
    copy_text(tsa.source, arg);
    return 0;
  case 's':
    return set_max_skip(arg);
  case 'a':
    tsa.access_log_alerts = strcasecmp(arg, "on") == 0;
    return 0;
  case 'H':
    tsa.no_rlog = true;
    return 0;
  case 'r':
    return set_start_rec(arg);
  case 'm':
    g_cfg.max_records = static_cast<size_t>(atol(arg));
    return 0;
  case 'Y':
    return set_syslog(arg);
  case 'k':
    return set_tracking(arg);
  case 'A':
    return tsan_cli_opt(arg, &tsa) == 0 ? 0 : EXIT_STATUS_INVAL;
  case OPT_JSON:
    g_cfg.out.json.path = arg;
    return 0;
  case OPT_EXIT_ALERTS:
    return g_cfg.out.exit.choose(arg) == 0 ? 0 : EXIT_STATUS_INVAL;
  case OPT_PROGRESS:
    g_cfg.out.progress = true;
    return 0;
  case OPT_REPORT:
    g_cfg.out.report.path = arg;
    return 0;
  case OPT_JUNIT:
    g_cfg.out.junit.path = arg;
    return 0;
  case OPT_BASELINE:
    return load_baseline(arg, g_cfg.audit.is_on, g_cfg.out.allowed);
  case OPT_BASELINE_WRITE:
    g_cfg.out.baseline_write.path = arg;
    return 0;
  default: // acted in the first pass
    return 0;
  }
}

int second_pass(int argc, char **argv) {
  reset_getopt_state();
  for (int opt; (opt = getopt_long(argc, argv, short_options, long_options, nullptr)) != -1;)
    if (const int rc = apply_option(opt, optarg))
      return rc;
  return 0;
}

// The outputs must not be written into what the run reads, and what they tell must be of the file
// that was named. Returns 0, or the status of the run.
int check_outputs(int argc, char **argv, const char *path) {
  if (!g_cfg.out.any())
    return 0;
  if (strlen(path) >= sizeof g_cfg.fpath) {
    fprintf(stderr, "The path of the file is longer than %zu bytes: [%s]\n", sizeof g_cfg.fpath - 1,
            path);
    return EXIT_STATUS_FAILED;
  }
  if (!find_outputs(g_cfg.out, g_cfg.tsa.access_log_alerts) ||
      !spares(g_cfg.out, path, "the file to analyze"))
    return EXIT_STATUS_FAILED;
  if (g_cfg.out.allowed.is_on() &&
      !spares(g_cfg.out, g_cfg.out.allowed.path, "the file of --baseline"))
    return EXIT_STATUS_FAILED;
  reset_getopt_state();
  for (int opt; (opt = getopt_long(argc, argv, short_options, long_options, nullptr)) != -1;)
    if (opt == 'C' && !spares(g_cfg.out, optarg, "a settings file"))
      return EXIT_STATUS_FAILED;
  return 0;
}

} // namespace

void init_config() {
  g_cfg = {};
  tsan_default_config(&g_cfg.tsa);
}

int parse_options(int argc, char **argv) {
  look_ahead(argc, argv);
  if (const int rc = first_pass(argc, argv))
    return rc;
  if (const int rc = second_pass(argc, argv))
    return rc;

  if (optind >= argc || argv[optind][0] == '\0') {
    fprintf(stderr, "Expecting argument after the options.\n");
    usage(argv[0], EXIT_STATUS_FAILED);
  }
  copy_text(g_cfg.fpath, argv[optind]);
  g_cfg.options = {argv + 1, static_cast<size_t>(optind) - 1};
  if (g_cfg.tsa.source[0] == '\0')
    copy_text(g_cfg.tsa.source, g_cfg.fpath);

  g_mod_ll[g_llctx.mod] = std::min<int>(g_cfg.verbosity, DEBUG_level);
  LOG(g_log, INFO_level, "fpath=[%s], verbosity=%d, start-rec=%ld, max-recs: %zu\n", g_cfg.fpath,
      g_cfg.verbosity, g_cfg.start_rec, g_cfg.max_records);
  if (g_cfg.verbosity > 0 || getenv("SHOW_VNT_CFG"))
    dump_settings();
  return check_outputs(argc, argv, argv[optind]);
}
