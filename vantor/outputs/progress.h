// --progress: one line on the terminal behind standard error that tells how far the run is.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <ctime>

class progress {
public:
  // Begins, unless standard error is no terminal. `todo`: bytes to read, 0 = not known. From here
  // to finish(), lines of both logs go through a stream that takes the line off the terminal first.
  void start(uint64_t todo);

  void count_alert() { ++alerts; }

  // Tells the bytes read so far; redraws when a tenth of a second has passed.
  void advance(size_t bytes) {
    if (is_on) [[unlikely]]
      redraw(bytes);
  }

  // Takes the line off and gives the logs their streams back.
  void finish();

  // Takes the line off the terminal, when it is there.
  void clear();

private:
  void redraw(size_t bytes);

  bool is_on = false, is_shown = false;
  uint64_t todo = 0;
  uint64_t alerts = 0;
  int64_t start_ms = 0, drawn_ms = 0;
  FILE *log_stream = nullptr, *alert_stream = nullptr;
};
