#include "outputs/run_files.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

// Reports a failure; true when there was none.
bool succeeded(int err, const char *what, const char *path) {
  if (err != 0)
    fprintf(stderr, "Cannot %s [%s]: %s\n", what, path, strerror(err));
  return err == 0;
}

bool create(output_file &out, const wanted_file &wanted) {
  return !wanted.path || succeeded(out.open(wanted.place), "create", wanted.path);
}

} // namespace

bool run_files::open(const output_settings &wanted) {
  return create(json, wanted.json) && create(page, wanted.report) && create(junit, wanted.junit) &&
         create(baseline, wanted.baseline_write);
}

bool run_files::is_whole(output_file &file, const wanted_file &wanted) {
  return succeeded(file.complete(), "write", wanted.path);
}

int run_files::complete_baseline(const output_settings &wanted, const baseline_writer &found,
                                 const char *capture, bool is_incomplete, int status) {
  if (!baseline.is_open() || !is_incomplete)
    return complete(baseline, wanted.baseline_write, status,
                    [&](output_file &file) { found.put(file, capture); });
  succeeded(ENOMEM, "write", wanted.baseline_write.path);
  return EXIT_STATUS_FAILED;
}
