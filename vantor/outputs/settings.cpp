#include "outputs/settings.h"

#include <unistd.h>

#include <cstdio>
#include <cstring>

namespace {

bool refuse(const char *path, const char *why) {
  fprintf(stderr, "Cannot write [%s]: %s\n", path, why);
  return false;
}

// A terminal may be told twice, but not a descriptor.
bool is_one(const output_place &a, const output_place &b) {
  return (a.fd != -1 && a.fd == b.fd) || is_same_file(id_of(a), id_of(b));
}

bool find(const char *path, output_place &place, bool alerts_on) {
  if (const int err = find_place(path, place))
    return refuse(path, strerror(err));
  const bool is_stdout = place.fd == STDOUT_FILENO;
  if (is_stdout && alerts_on)
    return refuse(path, "standard output has the alerts of -a on");
  if (!is_stdout && is_same_file(id_of(place), id_of(STDOUT_FILENO)))
    return refuse(path, "it is standard output");
  if (is_same_file(id_of(place), id_of(STDERR_FILENO)))
    return refuse(path, "it is standard error");
  return true;
}

bool spares(const char *output, const output_place &place, const char *path, const char *what) {
  if (!output || !is_same_file(id_of(place), id_of(path)))
    return true;
  char why[64];
  snprintf(why, sizeof why, "it is %s", what);
  return refuse(output, why);
}

} // namespace

bool output_settings::takes_stdout() const {
  return (json_path && json.fd == STDOUT_FILENO) || (report_path && report.fd == STDOUT_FILENO);
}

bool find_outputs(output_settings &out, bool alerts_on) {
  if (out.json_path && !find(out.json_path, out.json, alerts_on))
    return false;
  if (out.report_path && !find(out.report_path, out.report, alerts_on))
    return false;
  if (out.json_path && out.report_path && is_one(out.json, out.report))
    return refuse(out.report_path, "it is the file of --json");
  return true;
}

bool spares(const output_settings &out, const char *path, const char *what) {
  return spares(out.json_path, out.json, path, what) &&
         spares(out.report_path, out.report, path, what);
}
