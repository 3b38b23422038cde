#include "log/statement.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <string>
#include <utility>

#include <syslog.h>

#include <gtest/gtest.h>

#include "log/btrace.h"
#include "syswrap/syswrap.h"

LOG_MODULE(9);

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;
using testing::internal::RE;

namespace {

std::string sent_to_syslog;

struct file_log {
  FILE *fp = tmpfile();
  log_ctx ctx{};

  explicit file_log(uint32_t time_format = f_NO_TIME) {
    log_default(&ctx, fp);
    log_timefmt(&ctx, time_format);
  }
  ~file_log() { fclose(fp); }
  std::string text() {
    fflush(fp);
    std::string out(10'000, '\0');
    rewind(fp);
    out.resize(fread(out.data(), 1, out.size(), fp));
    return out;
  }
};

} // namespace

// In the C library's place.
extern "C" void syslog(int priority, const char *format, ...) {
  char text[4096];
  va_list args;
  va_start(args, format);
  vsnprintf(text, sizeof text, format, args);
  va_end(args);
  sent_to_syslog += std::to_string(priority) + " " + text;
}

TEST(log, line_layout) {
  const std::string second = "[0-9]{4}-[01][0-9]-[0-3][0-9] [0-2][0-9]:[0-5][0-9]:[0-6][0-9]";
  const std::string stamp = second + "\\.[0-9]{6} UTC ", long_text(5000, 'x'), all(2047, 'x');
  const std::string clock = "flags2clock: unsupported timer value: 2\n", cut = "fprintf/vfprintf: ";
  const struct {
    uint32_t flags;
    pid_t pid;
    const char *group;
    int level;
    std::string text, expected, report = "";
  } cases[] = {
      {0, 0, "FSCN", NORM_level, "a\n", stamp + "\\(NRM\\)  FSCN  a\n"},
      {0, 42, "", WARN_level, "a\n", stamp + "42  \\(WRN\\)  a\n"},
      {0, 42, "", MIN_level, "a\n", stamp + "42  a\n"},
      {0, 42, "FSCN", -126, "a\n", stamp + "42  \\( \\? \\)  FSCN  a\n"},
      {f_NO_TIME, 42, "FSCN", ERR_level, "a\n", "\\(ERR\\)  FSCN  a\n"},
      {f_NO_TIME | 2, 42, "too long", MIN_level, "a\n", "too lon  a\n"},
      {f_FMT_SECONDS, 0, "", CRIT_level, "a\n", second + " UTC \\(CRI\\)  a\n"},
      {f_RAW_TIME | 1, -5, "", PANIC_level, "a\n", "[0-9]+\\.[0-9]{6} \\(PNC\\)  a\n"},
      {2, 0, "", NORM_level, "a\n", "", clock},
      // Empty or too long: written as far as it got.
      {f_NO_TIME, 0, "", NORM_level, "", "\\(NRM\\)  ", cut},
      {f_NO_TIME, 0, "", MIN_level, all + "x", all, cut},
      {f_NO_TIME, 0, "", WARN_level, long_text, "\\(WRN\\)  " + all.substr(7), cut},
  };
  for (const auto &c : cases) {
    file_log log(c.flags);
    log_set_pid(&log.ctx, c.pid);
    log_set_group(&log.ctx, mk_n64_tag(c.group));
    CaptureStderr();
    LOG(&log.ctx, c.level, "%s", c.text.c_str());
    const std::string report = GetCapturedStderr();
    EXPECT_TRUE(report.starts_with(c.report) && report.empty() == c.report.empty()) << report;
    EXPECT_TRUE(RE::FullMatch(log.text(), c.expected)) << log.text() << c.expected;
    EXPECT_EQ(log.ctx.total_out, log.text().size());
  }
}

TEST(log, threshold_decides_before_arguments_are_evaluated) {
  file_log log;
  int evaluated = 0;
  for (const int threshold : {NORM_level, INFO_level, ERR_level}) {
    g_mod_ll[g_llctx.mod] = threshold;
    for (const int level : {MIN_level, ERR_level, NORM_level, INFO_level, DEBUG_level})
      LOG(&log.ctx, level, "%d\n", ++evaluated);
  }
  g_mod_ll[g_llctx.mod] = NORM_level;
  EXPECT_EQ(evaluated, 3 + 4 + 2);
  EXPECT_EQ(std::ranges::count(log.text(), '\n'), evaluated);

  // Inside a section the section's level is what counts.
  const loglevel_ctx section{.mod = g_llctx.mod, .sec = 3};
  g_sec_ll[3] = INFO_level;
  EXPECT_FALSE(log_passes(section, ERR_level));
  g_sec_ll[3] = WARN_level;
  EXPECT_TRUE(log_passes(section, DEBUG_level));
}

TEST(log, names_of_levels_and_facilities) {
  enum { NONE = 77 };
  const std::pair<const char *, int> levels[] = {
      {"err", ERR_level},      {"Error", ERR_level}, {"CRITICAL", CRIT_level}, {"norm", NORM_level},
      {"SECT", SECTION_level}, {"Dbg", DEBUG_level}, {"panic", NONE},          {"warnings", NONE},
  };
  for (const auto &[word, expected] : levels) {
    int level = NONE;
    EXPECT_EQ(match_log_level(word, &level), expected == NONE ? -1 : 0) << word;
    EXPECT_EQ(level, expected) << word;
  }
  EXPECT_STREQ(log_level_str(CRIT_level), "ctitical");
  EXPECT_STREQ(log_level_str(MIN_level), "??");
  EXPECT_STREQ(get_level_tag(64), "(SCT)");

  const std::pair<const char *, int> facilities[] = {
      {"User", LOG_USER},      {"local0", LOG_LOCAL0}, {"local07", LOG_LOCAL7},
      {"local3x", LOG_LOCAL3}, {"local8", -1},         {"Local1", -1},
      {"local-1", -1},         {"daemon", -1},         {"local4294967296", -1},
  };
  for (const auto &[text, facility] : facilities)
    EXPECT_EQ(str2fac(text), facility) << text;
  EXPECT_STREQ(fac2str(LOG_USER), "user");
  EXPECT_STREQ(fac2str(LOG_LOCAL7), "local7");
  EXPECT_STREQ(fac2str(LOG_DAEMON), "#unknown#");
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
  EXPECT_EQ(sent_to_syslog, std::to_string(LOG_LOCAL3 | LOG_DEBUG) + " alert %\n" +
                                std::to_string(LOG_LOCAL3 | LOG_CRIT) + " (CRI)  critical\n");
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
  // The command's status is lost when SIGCHLD is ignored.
  const auto previous = signal(SIGCHLD, SIG_IGN);
  const struct {
    FILE *fp;
    bool is_pipe;
    const char *report;
  } cases[] = {{stderr, false, ""},
               {popen("cat >/dev/null", "w"), true, ""},
               {fopen("/dev/full", "w"), false,
                "log_close: fclose error(28) for the application log: No space left on device\n"}};
  for (const auto &c : cases) {
    log_ctx ctx{};
    ctx.fp = c.fp;
    ctx.is_pipe = c.is_pipe;
    CaptureStderr();
    if (c.fp != stderr)
      LOG(&ctx, NORM_level, "last line\n");
    log_close(&ctx);
    EXPECT_EQ(GetCapturedStderr(), c.report);
    EXPECT_EQ(ctx.fp, c.fp == stderr ? stderr : nullptr);
  }
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

TEST(syswrap, refused_allocation_is_reported_and_keeps_errno) {
  log_default(g_log, stderr);
  log_timefmt(g_log, f_NO_TIME);
  CaptureStderr();
  EXPECT_EQ(W_calloc("caller", SIZE_MAX / 2, 4), nullptr);
  EXPECT_EQ(errno, ENOMEM);
  EXPECT_TRUE(GetCapturedStderr().ends_with(
      "(ERR)  caller: calloc(9223372036854775807, 4) ERROR(12): Cannot allocate memory\n"));

  const char *paths[] = {"/nonexistent", "/dev/null", "/"};
  EXPECT_STREQ(pick_first_file(paths, 3), "/dev/null");
  EXPECT_EQ(pick_first_file(paths, 1), nullptr);
}
