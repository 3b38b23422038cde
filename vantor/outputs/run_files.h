// The files that a run writes beside the logs: --json and --report.
#pragma once

#include "outputs/exit_status.h"
#include "outputs/output_file.h"
#include "outputs/settings.h"

struct run_files {
  output_file json, page;

  // Opens those that are wanted. Returns false after a report on standard error.
  bool open(const output_settings &wanted);

  bool any() const { return json.is_open() || page.is_open(); }

  // Completes both; what is still to be written is put by `put_page` and `end_json`, which are told
  // the status of the run. The closing record of JSON tells it too, so it comes when all else has
  // been written. Should it fail itself, the page is written anew, with the status that comes of
  // it. Returns the status, after a report of each failure.
  template <typename PutPage, typename EndJson>
  int complete(const output_settings &wanted, int status, PutPage put_page, EndJson end_json) {
    if (json.is_open() && json.error() != 0)
      status = EXIT_STATUS_FAILED;
    const bool has_page = page.is_open();
    if (has_page) {
      put_page(page, status);
      if (!is_whole(page, wanted.report_path))
        status = EXIT_STATUS_FAILED;
    }
    if (!json.is_open())
      return status;
    end_json(json, status);
    if (is_whole(json, wanted.json_path))
      return status;
    if (has_page && status != EXIT_STATUS_FAILED && page.open(wanted.report) == 0) {
      put_page(page, EXIT_STATUS_FAILED);
      is_whole(page, wanted.report_path);
    }
    return EXIT_STATUS_FAILED;
  }

private:
  static bool is_whole(output_file &file, const char *path);
};
