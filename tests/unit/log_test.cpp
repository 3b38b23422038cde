#include "log/statement.h"

#include <gtest/gtest.h>

#include <syslog.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "log/btrace.h"
#include "syswrap/syswrap.h"

LOG_MODULE(9);

using testing::internal::RE;

namespace {

std::vector<std::pair<int, std::string>> sent_to_syslog;

std::string read_all(FILE *fp) {
  std::string text;
  fflush(fp);
  rewind(fp);
  for (int c = fgetc(fp); c != EOF; c = fgetc(fp))
    text += static_cast<char>(c);
  return text;
}

struct file_log {
  FILE *fp = tmpfile();
  log_ctx ctx{};

  file_log() {
    log_default(&ctx, fp);
    log_timefmt(&ctx, f_NO_TIME);
  }
  ~file_log() { fclose(fp); }
  std::string text() { return read_all(fp); }
};

} // namespace

// In the C library's place.
extern "C" void syslog(int priority, const char *format, ...) {
  char text[4096];
  va_list args;
  va_start(args, format);
  vsnprintf(text, sizeof text, format, args);
  va_end(args);
  sent_to_syslog.emplace_back(priority, text);
}

TEST(log, line_layout) {
  const std::string second = "[0-9]{4}-[01][0-9]-[0-3][0-9] [0-2][0-9]:[0-5][0-9]:[0-6][0-9]";
  const std::string stamp = second + "\\.[0-9]{6} UTC ";
  const struct {
    uint32_t flags;
    pid_t pid;
    const char *group;
    int level;
    std::string expected;
  } cases[] = {{0, 0, "FSCN", NORM_level, stamp + "\\(NRM\\)  FSCN  msg 7\n"},
               {0, 42, "", WARN_level, stamp + "42  \\(WRN\\)  msg 7\n"},
               {0, 42, "", MIN_level, stamp + "42  msg 7\n"},
               {0, 42, "FSCN", -126, stamp + "42  \\( \\? \\)  FSCN  msg 7\n"},
               {f_NO_TIME, 42, "FSCN", ERR_level, "\\(ERR\\)  FSCN  msg 7\n"},
               {f_NO_TIME | 2, 42, "too long", MIN_level, "too lon  msg 7\n"},
               {f_FMT_SECONDS, 0, "", CRIT_level, second + " UTC \\(CRI\\)  msg 7\n"},
               {f_RAW_TIME | f_MONOTONIC_TIMER, -5, "", PANIC_level,
                "[0-9]{1,8}\\.[0-9]{6} \\(PNC\\)  msg 7\n"},
               {2, 0, "", NORM_level, ""}};
  for (const auto &c : cases) {
    file_log log;
    log_timefmt(&log.ctx, c.flags);
    log_set_pid(&log.ctx, c.pid);
    log_set_group(&log.ctx, mk_n64_tag(c.group));
    testing::internal::CaptureStderr();
    LOG(&log.ctx, c.level, "msg %d\n", 7);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              c.expected.empty() ? "flags2clock: unsupported timer value: 2\n" : "");
    EXPECT_TRUE(RE::FullMatch(log.text(), c.expected)) << log.text() << c.expected;
    EXPECT_EQ(log.ctx.total_out, log.text().size());
  }
}

TEST(log, line_that_is_empty_or_too_long_is_reported_and_written_as_far_as_it_got) {
  const struct {
    int level;
    size_t length;
    std::string expected;
  } cases[] = {{NORM_level, 0, "(NRM)  "},
               {MIN_level, 2048, std::string(2047, 'x')},
               {WARN_level, 5000, "(WRN)  " + std::string(2040, 'x')}};
  for (const auto &c : cases) {
    file_log log;
    testing::internal::CaptureStderr();
    LOG(&log.ctx, c.level, "%s", std::string(c.length, 'x').c_str());
    EXPECT_TRUE(testing::internal::GetCapturedStderr().starts_with("fprintf/vfprintf: "));
    EXPECT_EQ(log.text(), c.expected);
  }
  file_log log;
  logbuf_reset();
  EXPECT_EQ(logbuf_prepare(&log.ctx, NORM_level, "%s", std::string(2040, 'x').c_str()), 2040);
}

TEST(log, threshold_decides_before_arguments_are_evaluated) {
  file_log log;
  int evaluated = 0;
  const auto lines_at = [&](int threshold) {
    g_mod_ll[g_llctx.mod] = threshold;
    for (const int level : {MIN_level, ERR_level, NORM_level, INFO_level, DEBUG_level})
      LOG(&log.ctx, level, "%d\n", ++evaluated);
    return evaluated;
  };
  EXPECT_EQ(lines_at(NORM_level), 3);
  EXPECT_EQ(lines_at(INFO_level), 3 + 4);
  EXPECT_EQ(lines_at(ERR_level), 3 + 4 + 2);
  g_mod_ll[g_llctx.mod] = NORM_level;
  const std::string text = log.text();
  EXPECT_EQ(std::ranges::count(text, '\n'), evaluated);

  // Inside a section the section's level is what counts.
  const loglevel_ctx section{.mod = g_llctx.mod, .sec = 3};
  g_sec_ll[3] = INFO_level;
  EXPECT_FALSE(log_passes(section, ERR_level));
  g_sec_ll[3] = WARN_level;
  EXPECT_TRUE(log_passes(section, DEBUG_level));
}

TEST(log, level_names) {
  const std::pair<const char *, int> words[] = {
      {"err", ERR_level},
      {"Error", ERR_level},
      {"CRITICAL", CRIT_level},
      {"norm", NORM_level},
      {"SECT", SECTION_level},
      {"Dbg", DEBUG_level},
      {"panic", 77},
      {"", 77},
      {"warnings", 77},
  };
  for (const auto &[word, expected] : words) {
    int level = 77;
    EXPECT_EQ(match_log_level(word, &level), expected == 77 ? -1 : 0) << word;
    EXPECT_EQ(level, expected) << word;
  }
  EXPECT_STREQ(log_level_str(CRIT_level), "ctitical");
  EXPECT_STREQ(log_level_str(MIN_level), "??");
  EXPECT_STREQ(get_level_tag(64), "(SCT)");
  EXPECT_STREQ(get_level_tag(3), "( ? )");
  EXPECT_STREQ(get_level_tag(MIN_level), "( ? )");
}

TEST(log, thresholds_are_saved_one_level_deep) {
  for (int level = 1; level <= 3; ++level) {
    g_mod_ll[100] = level;
    log_push_mlevels();
  }
  log_pop_mlevels();
  EXPECT_EQ(g_mod_ll[100], 1);
  g_mod_ll[100] = 0;
  log_pop_mlevels();
  EXPECT_EQ(g_mod_ll[100], 0);
}

TEST(log, syslog_gets_negative_levels_outside_signal_handlers) {
  file_log log;
  config_syslog(&log.ctx, "korva", LOG_CONS, LOG_LOCAL3);
  LOG(&log.ctx, NORM_level, "normal\n");
  LOG(&log.ctx, MIN_level, "alert %%\n");
  LOG(&log.ctx, CRIT_level, "critical\n");
  g_sigctx = SIGTERM;
  LOG(&log.ctx, ERR_level, "in a handler\n");
  g_sigctx = 0;
  disable_syslog(&log.ctx);
  LOG(&log.ctx, ERR_level, "off\n");
  const decltype(sent_to_syslog) expected = {{LOG_LOCAL3 | LOG_DEBUG, "alert %\n"},
                                             {LOG_LOCAL3 | LOG_CRIT, "(CRI)  critical\n"}};
  EXPECT_EQ(std::exchange(sent_to_syslog, {}), expected);
}

TEST(log, facility_names) {
  const std::pair<const char *, int> cases[] = {
      {"User", LOG_USER},      {"local0", LOG_LOCAL0},
      {"local07", LOG_LOCAL7}, {"local3x", LOG_LOCAL3},
      {"local8", -1},          {"Local1", -1},
      {"local", -1},           {"local-1", -1},
      {"daemon", -1},          {"", -1},
      {"local4294967296", -1},
  };
  for (const auto &[text, facility] : cases)
    EXPECT_EQ(str2fac(text), facility) << text;
  EXPECT_STREQ(fac2str(LOG_USER), "user");
  EXPECT_STREQ(fac2str(LOG_LOCAL7), "local7");
  EXPECT_STREQ(fac2str(LOG_DAEMON), "#unknown#");
}

TEST(log, threads_write_whole_lines_in_the_same_order_to_stream_and_mirror) {
  file_log log;
  FILE *mirror = tmpfile();
  log_mirror(&log.ctx, mirror);
  const auto write_lines = [&log](char c) {
    for (size_t i = 0; i < 2000; ++i)
      LOG(&log.ctx, MIN_level, "%s\n", std::string(1 + i % 60, c).c_str());
  };
  std::thread other(write_lines, 'b');
  write_lines('a');
  other.join();

  const std::string text = log.text();
  EXPECT_EQ(log.ctx.total_out, text.size());
  EXPECT_EQ(text, read_all(mirror));
  EXPECT_EQ(std::ranges::count(text, '\n'), 4000);
  EXPECT_EQ(text.find("ab"), text.npos);
  EXPECT_EQ(text.find("ba"), text.npos);
  fclose(mirror);
}

TEST(log, mirror_on_the_same_file_and_missing_stream) {
  file_log log;
  log_mirror(&log.ctx, log.fp);
  LOG(&log.ctx, NORM_level, "once\n");
  log_default(&log.ctx, nullptr);
  LOG(&log.ctx, NORM_level, "nowhere\n");
  EXPECT_EQ(log.text(), "(NRM)  once\n");
}

TEST(log, close_reports_what_fails) {
  const auto close_log = [](FILE *fp, bool is_pipe) {
    log_ctx ctx{};
    ctx.fp = fp;
    ctx.is_pipe = is_pipe;
    testing::internal::CaptureStderr();
    if (fp != stderr)
      LOG(&ctx, NORM_level, "last line\n");
    log_close(&ctx);
    EXPECT_EQ(ctx.fp, fp == stderr ? stderr : nullptr);
    return testing::internal::GetCapturedStderr();
  };
  EXPECT_EQ(close_log(stderr, false), "");
  EXPECT_EQ(close_log(fopen("/dev/full", "w"), false),
            "log_close: fclose error(28) for the application log: No space left on device\n");

  // The command's status is lost when SIGCHLD is ignored.
  const auto previous = signal(SIGCHLD, SIG_IGN);
  EXPECT_EQ(close_log(popen("cat >/dev/null", "w"), true), "");
  signal(SIGCHLD, previous);
}

TEST(log, backtrace_stops_where_the_buffer_ends) {
  char buf[4096] = "";
  EXPECT_EQ(snprintf_btrace(buf, sizeof buf, "from %s:\n", "here"), 0);
  EXPECT_TRUE(RE::PartialMatch(buf, "^from here:\n#0: .+\n#1: .+\n")) << buf;
  EXPECT_EQ(snprintf_btrace(buf, 12, "%s", "heading\n"), 0);
  EXPECT_STREQ(buf, "heading\n#0:");
  EXPECT_EQ(snprintf_btrace(buf, 8, "%s", "heading\n"), -1);
  EXPECT_EQ(snprintf_btrace(buf, 8, "%s", ""), -1);
}

TEST(syswrap, refused_allocation_is_reported_and_keeps_errno) {
  log_default(g_log, stderr);
  log_timefmt(g_log, f_NO_TIME);
  testing::internal::CaptureStderr();
  EXPECT_EQ(W_calloc("caller", SIZE_MAX / 2, 4), nullptr);
  EXPECT_EQ(errno, ENOMEM);
  EXPECT_TRUE(testing::internal::GetCapturedStderr().ends_with(
      "(ERR)  caller: calloc(9223372036854775807, 4) ERROR(12): Cannot allocate memory\n"));

  const char *paths[] = {"/nonexistent", "/dev/null", "/"};
  EXPECT_STREQ(pick_first_file(paths, 3), "/dev/null");
  EXPECT_EQ(pick_first_file(paths, 1), nullptr);
}
