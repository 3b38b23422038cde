// How a run ends, as scripts see it.
#pragma once

enum exit_status : int {
  EXIT_STATUS_OK = 0,     // the run came to its end; also when the file cannot be opened
  EXIT_STATUS_USAGE = 1,  // help or version shown, unknown option
  EXIT_STATUS_FAILED = 2, // settings file, seek, lost sync, nothing to analyze, no file named,
                          // an output file that cannot be written
  EXIT_STATUS_ALERTS = 3, // alerts were raised, and --exit-alerts asked for a status of their own
  EXIT_STATUS_NOMEM = 12, // no memory for the analyzer
  EXIT_STATUS_INVAL = 22, // bad -A, -k, -Y or --exit-alerts
  EXIT_STATUS_RANGE = 34, // bad -r or -s
};
