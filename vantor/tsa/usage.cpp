#include "tsa/usage.h"

#include <cstdio>
#include <cstdlib>

#include "meta/app_info.h"
#include "tsa/config.h"

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
