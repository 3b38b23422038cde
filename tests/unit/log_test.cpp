#include "log/statement.h"

#include <algorithm>
#include <csignal>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "log/btrace.h"
#include "support/engine.h"
#include "syswrap/syswrap.h"

LOG_MODULE(9);

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;
using testing::internal::RE;

TEST(log, threshold_decides_before_arguments_are_evaluated) {
  engine e;
  int evaluated = 0;
  for (const int threshold : {NORM_level, INFO_level, ERR_level}) {
    g_mod_ll[g_llctx.mod] = threshold;
    for (const int level : {MIN_level, ERR_level, NORM_level, INFO_level, DEBUG_level})
      LOG(g_log, level, "%d\n", ++evaluated);
  }
  g_mod_ll[g_llctx.mod] = NORM_level;
  EXPECT_EQ(evaluated, 3 + 4 + 2);
  EXPECT_EQ(std::ranges::count(e.run(), '\n'), evaluated);

  // Inside a section the section's level is what counts.
  g_sec_ll[3] = INFO_level;
  EXPECT_FALSE(log_passes({.mod = g_llctx.mod, .sec = 3}, ERR_level));
  g_sec_ll[3] = WARN_level;
  EXPECT_TRUE(log_passes({.mod = g_llctx.mod, .sec = 3}, DEBUG_level));
}

TEST(log, thresholds_are_saved_one_level_deep) {
  for (int level = 1; level <= 3; ++level) {
    g_mod_ll[100] = level;
    log_push_mlevels();
  }
  log_pop_mlevels();
  EXPECT_EQ(std::exchange(g_mod_ll[100], 0), 1);
  log_pop_mlevels();
  EXPECT_EQ(g_mod_ll[100], 0);
}

TEST(log, close_reports_what_fails) {
  const auto previous = signal(SIGCHLD, SIG_IGN); // the command's status is lost
  log_ctx standard{}, pipe{}, full{};
  standard.fp = stderr;
  pipe.fp = popen("cat >/dev/null", "w");
  pipe.is_pipe = true;
  full.fp = fopen("/dev/full", "w");
  CaptureStderr();
  LOG(&full, NORM_level, "last line\n");
  for (log_ctx *log : {&standard, &pipe, &full})
    log_close(log);
  EXPECT_EQ(GetCapturedStderr(),
            "log_close: fclose error(28) for the application log: No space left on device\n");
  EXPECT_TRUE(standard.fp == stderr && pipe.fp == nullptr && full.fp == nullptr);
  signal(SIGCHLD, previous);
}

TEST(log, backtrace_stops_where_the_buffer_ends) {
  char buf[4096] = "";
  EXPECT_EQ(snprintf_btrace(buf, sizeof buf, "from %s:\n", "here"), 0);
  EXPECT_TRUE(RE::PartialMatch(buf, "^from here:\n#0: .+\n#1: .+\n")) << buf;
  EXPECT_EQ(snprintf_btrace(buf, 12, "%s", "heading\n"), 0);
  EXPECT_STREQ(buf, "heading\n#0:");
  EXPECT_EQ(snprintf_btrace(buf, 8, "%s", "heading\n"), -1);
}

TEST(syswrap, first_file_that_is_there) {
  const char *paths[] = {"/nonexistent", "/dev/null", "/"};
  EXPECT_STREQ(pick_first_file(paths, 3), "/dev/null");
  EXPECT_EQ(pick_first_file(paths, 1), nullptr);
}
