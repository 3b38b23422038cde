#include "outputs/settings.h"

#include <unistd.h>

#include <algorithm>
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

bool find(wanted_file &file, bool alerts_on) {
  if (const int err = find_place(file.path, file.place))
    return refuse(file.path, strerror(err));
  const bool is_stdout = file.place.fd == STDOUT_FILENO;
  if (is_stdout && alerts_on)
    return refuse(file.path, "standard output has the alerts of -a on");
  if (!is_stdout && is_same_file(id_of(file.place), id_of(STDOUT_FILENO)))
    return refuse(file.path, "it is standard output");
  if (is_same_file(id_of(file.place), id_of(STDERR_FILENO)))
    return refuse(file.path, "it is standard error");
  return true;
}

bool refuse_as(const char *path, const char *what) {
  char why[64];
  snprintf(why, sizeof why, "it is %s", what);
  return refuse(path, why);
}

// It must not be one of those before it.
bool is_alone(const wanted_file &file, const output_settings &out) {
  for (const wanted_file *other : out.files()) {
    if (other == &file)
      break;
    char what[32];
    snprintf(what, sizeof what, "the file of %s", other->option);
    if (other->path && is_one(other->place, file.place))
      return refuse_as(file.path, what);
  }
  return true;
}

} // namespace

bool output_settings::any() const {
  return std::ranges::any_of(files(), [](auto *file) { return file->path; }) || progress ||
         exit.is_on() || allowed.is_on();
}

bool output_settings::takes_stdout() const {
  return std::ranges::any_of(
      files(), [](auto *file) { return file->path && file->place.fd == STDOUT_FILENO; });
}

bool find_outputs(output_settings &out, bool alerts_on) {
  return std::ranges::all_of(out.files(), [&](wanted_file *file) {
    return !file->path || (find(*file, alerts_on) && is_alone(*file, out));
  });
}

bool spares(const output_settings &out, const char *path, const char *what) {
  return std::ranges::all_of(out.files(), [&](const wanted_file *file) {
    return !file->path || !is_same_file(id_of(file->place), id_of(path)) ||
           refuse_as(file->path, what);
  });
}
