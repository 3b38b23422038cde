// The files that a run writes beside the logs: --json, --report, --junit and --baseline-write.
#pragma once

#include "outputs/baseline_writer.h"
#include "outputs/exit_status.h"
#include "outputs/output_file.h"
#include "outputs/settings.h"

struct run_files {
  output_file json, page, junit, baseline;

  // Opens those that are wanted. Returns false after a report on standard error.
  bool open(const output_settings &wanted);

  // One that tells of the stream, and not only of what was found.
  bool any() const { return json.is_open() || page.is_open() || junit.is_open(); }

  // Completes a file that does not tell the status of the run, if it is wanted. Returns that
  // status, after a report when the file cannot be had.
  template <typename Put>
  static int complete(output_file &file, const wanted_file &wanted, int status, Put put) {
    if (!file.is_open())
      return status;
    put(file);
    return is_whole(file, wanted) ? status : EXIT_STATUS_FAILED;
  }

  // Completes --baseline-write in the same way; what could not all be kept is not written.
  int complete_baseline(const output_settings &wanted, const baseline_writer &found,
                        const char *capture, bool is_incomplete, int status);

  // Completes JSON and page; what is still to be written is put by `put_page` and `end_json`, which
  // are told the status of the run. The closing record of JSON tells it too, so it comes when all
  // else has been written. Should it fail itself, the page is written anew, with the status that
  // comes of it. Returns the status, after a report of each failure.
  template <typename PutPage, typename EndJson>
  int complete(const output_settings &wanted, int status, PutPage put_page, EndJson end_json) {
    if (json.is_open() && json.error() != 0)
      status = EXIT_STATUS_FAILED;
    const bool has_page = page.is_open();
    if (has_page) {
      put_page(page, status);
      if (!is_whole(page, wanted.report))
        status = EXIT_STATUS_FAILED;
    }
    if (!json.is_open())
      return status;
    end_json(json, status);
    if (is_whole(json, wanted.json))
      return status;
    if (has_page && status != EXIT_STATUS_FAILED && page.open(wanted.report.place) == 0) {
      put_page(page, EXIT_STATUS_FAILED);
      is_whole(page, wanted.report);
    }
    return EXIT_STATUS_FAILED;
  }

private:
  static bool is_whole(output_file &file, const wanted_file &wanted);
};
