// The options of the program: what getopt_long() takes, and what --help tells of them.
#pragma once

#include <getopt.h>

#include <span>

// Options without a letter.
enum : int {
  OPT_HELP = 256,
  OPT_JSON,
  OPT_EXIT_ALERTS,
  OPT_PROGRESS,
  OPT_REPORT,
  OPT_AUDIT,
  OPT_PACKET_SIZE,
  OPT_LIMIT,
  OPT_JUNIT,
  OPT_BASELINE,
  OPT_BASELINE_WRITE,
  OPT_CLIP,
};

struct option_row {
  const char *name; // null: the letter alone
  int has_argument; // as for getopt_long()
  int id;           // the letter, or one of the above
  const char *argument;
  const char *help; // null: --help does not show it
};

// In the order in which --help shows them.
extern const std::span<const option_row> option_rows;

// For getopt_long(); and to read the words without putting them into another order.
extern const char *const short_options;
extern const char short_options_in_order[];

// For getopt_long(), without --help, so that "--h" and "--he" stay what they are; and with it.
extern const option *const long_options, *const long_options_and_help;
