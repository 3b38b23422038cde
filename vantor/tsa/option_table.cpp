#include "tsa/option_table.h"

#include <array>

namespace {

// Names without a letter must not make an abbreviation of those with one ambiguous.
constexpr option_row rows[] = {
    {"srctag", required_argument, 'S', "tag", "name of the source in every line"},
    {"alerts", required_argument, 'a', "on|off", "write terse alerts to standard output"},
    {"hushlog", no_argument, 'H', "", "keep alerts out of the application log"},
    {"analyze", required_argument, 'A', "word", "analyzer setting: on, off, or name=value"},
    {"maxskip", required_argument, 's', "num", "give up when no packet of so many is analyzed"},
    {"from", required_argument, 'r', "num", "start at this packet, 1 being the first"},
    {"maxnum", required_argument, 'm', "num", "stop after so many packets"},
    {"config", required_argument, 'C', "file", "settings file; other options override it"},
    {"syslog", required_argument, 'Y', "facility", "also send terse alerts to syslog"},
    {"track", required_argument, 'k', "words", "trace lines, words joined with ':'"},
    {"verbose", no_argument, 'v', "", "more lines; twice for the most"},
    {nullptr, no_argument, 't', "", "no effect"},
    {"exit-alerts", optional_argument, OPT_EXIT_ALERTS, "kinds", "status 3 for alerts (of kinds)"},
    {"json", required_argument, OPT_JSON, "file", "write the run as JSON Lines"},
    {"report", required_argument, OPT_REPORT, "file", "write the run as an HTML page"},
    {"junit", required_argument, OPT_JUNIT, "file", "write the run as a test suite for CI systems"},
    {"baseline", required_argument, OPT_BASELINE, "file",
     "findings that are allowed, and until when"},
    {"baseline-write", required_argument, OPT_BASELINE_WRITE, "file", "write what allows this run"},
    {"progress", no_argument, OPT_PROGRESS, "", "show on a terminal how far the run is"},
    {"audit", optional_argument, OPT_AUDIT, "profile",
     "judge by the standards: mpeg, dvb, atsc, ott"},
    {"packet-size", required_argument, OPT_PACKET_SIZE, "bytes",
     "auto, 188, 192, 204 or 208; with --audit"},
    {"limit", required_argument, OPT_LIMIT, "name=value", "another limit; with --audit"},
    {"clip", required_argument, OPT_CLIP, "dir", "cut out what lies around findings; with --audit"},
    // What these were short for before there were others that begin like them.
    {"p", no_argument, OPT_PROGRESS, "", nullptr},
    {"j", required_argument, OPT_JSON, "", nullptr},
    {"c", required_argument, 'C', "", nullptr},
    {"version", no_argument, 'V', "", "show the version"},
    {"options", no_argument, '?', "", "show a short help"},
    {"help", no_argument, OPT_HELP, "", "show this"},
};

// Ends with a row of zeros, as getopt_long() wants it.
template <bool with_help> constexpr auto make_long_options() {
  std::array<option, std::size(rows) + 1> out = {};
  size_t n = 0;
  for (const option_row &row : rows)
    if (row.name && (with_help || row.id != OPT_HELP))
      out[n++] = {row.name, row.has_argument, nullptr, row.id};
  return out;
}

constexpr auto without_help = make_long_options<false>(), with_help = make_long_options<true>();

} // namespace

const std::span<const option_row> option_rows = rows;
const char short_options_in_order[] = "-tvV?S:s:a:Hr:m:C:Y:k:A:";
const char *const short_options = short_options_in_order + 1;
const option *const long_options = without_help.data();
const option *const long_options_and_help = with_help.data();
