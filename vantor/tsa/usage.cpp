#include "tsa/usage.h"

#include <cstdio>
#include <cstdlib>
#include <string>

#include "meta/app_info.h"
#include "outputs/exit_status.h"
#include "tsa/config.h"
#include "tsa/option_table.h"

static constexpr char option_text[] = R"( PARAMETERS:
       -S tag      = source tag
 OPTIONS:
       -C config   = load settings from vnt config file
       -v          = increase verbosity
       -a on|off   = send (if on) alerts to STDOUT
       -H          = do NOT write alerts to application log
       -A o=s      = specify analyzer option/setting
       -s num      = max # packets to skip
       -Y facility = syslog(3) alerts using {facility}
       -r num      = start at record # num (1-based) [1]
       -m num      = process max=N records [0 = all]
       -k {o1}:..  = specify tracking option(s) []
       -?          = show help and exit
       -V          = output application's version

)";

void usage(const char *prog, int status) {
  fprintf(stderr, "%s\n", get_custom_app_info(g_app_name, g_app_descr, nullptr));
  fprintf(stderr, "Usage: %s -s source OPTIONS fpath\n", prog);
  fputs(option_text, stderr);
  dump_build_info(stderr);
  fprintf(stderr, "%s %s\n\n", g_app_name, "is part of Nuvreck.");
  exit(status);
}

static std::string heading(const option_row &row) {
  std::string text = row.id < OPT_HELP ? std::string("-") + static_cast<char>(row.id) : "  ";
  text += row.name ? (row.id < OPT_HELP ? ", --" : "  --") + std::string(row.name) : "";
  if (row.has_argument == optional_argument)
    return text + "[=" + row.argument + "]";
  return row.has_argument == required_argument ? text + "=" + row.argument : text;
}

void show_help(const char *prog) {
  printf("Usage: %s [option]... file\n"
         "Checks the health of a recorded MPEG transport stream.\n\n",
         prog);
  for (const option_row &row : option_rows)
    if (row.help)
      printf("  %-26s  %s\n", heading(row).c_str(), row.help);
  puts("\nkorva(1) tells the whole of it.");
  if (fflush(stdout) == 0 && !ferror(stdout))
    exit(0);
  fprintf(stderr, "%s: standard output could not be written in full\n", g_app_name);
  exit(EXIT_STATUS_FAILED);
}
