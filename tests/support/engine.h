// An analyzer under test, with everything that it writes, and the clocks that it reads.
//
//   engine e;                           // at NORM_level, as the program without -v
//   e.cfg.max_pdts_delta = 100;         // settings, until the context is made by its first use
//   e.start();                          // a program with video on PID 101 and audio on 102
//   e.s.lose(102).data(102);
//   EXPECT_EQ(e.run(), "(WRN)  FSCN  ALERT ...\nALERT ...\n");
#pragma once

#include <cstdio>
#include <ctime>
#include <string>

#include "log/log.h"
#include "support/ts_builder.h"
#include "tsanalyze/ctx.h"

extern timespec test_now;   // monotonic time, for set_now(); at first 100 s; negative: no clock
extern time_t test_seconds; // wall-clock time, for wall_seconds(); at first 1000

class engine {
public:
  engine();
  ~engine();
  engine(const engine &) = delete;

  tsan_config cfg = {}; // enabled, source "src", counters checked, terse alerts; no other check
  ts_stream s;          // packets to come
  int rc = 0;           // result of the last packet
  FILE *out;            // where both logs go; other text may go there too

  tsan_ctx *operator->() { return *this; }
  operator tsan_ctx *();

  tsan_config &config() { return tc ? tc->cfg : cfg; } // that in force

  // Hands the packets of `s` over, each in memory of its own, so that a sanitizer sees a read past
  // its end.
  void feed();
  // Does that and returns what was written since the last time.
  std::string run();
  // Hands a PAT and a PMT on PID 100 over, of video on 101 and audio on 102, whatever is written
  // then.
  engine &start();

private:
  char *text = nullptr;
  size_t size = 0, taken = 0;
  tsan_ctx *tc = nullptr;
};
