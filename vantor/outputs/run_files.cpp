#include "outputs/run_files.h"

#include <cstdio>
#include <cstring>

namespace {

// Reports a failure; true when there was none.
bool succeeded(int err, const char *what, const char *path) {
  if (err != 0)
    fprintf(stderr, "Cannot %s [%s]: %s\n", what, path, strerror(err));
  return err == 0;
}

bool create(output_file &out, const char *path, const output_place &place) {
  return !path || succeeded(out.open(place), "create", path);
}

} // namespace

bool run_files::open(const output_settings &wanted) {
  return create(json, wanted.json_path, wanted.json) &&
         create(page, wanted.report_path, wanted.report);
}

bool run_files::is_whole(output_file &file, const char *path) {
  return succeeded(file.complete(), "write", path);
}
