// What the transcripts in library/ call, and what is beyond them.
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdlib>

#include <dlfcn.h>
#include <sys/syscall.h>
#include <syslog.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "config/settings.h"
#include "log/levels.h"
#include "log/statement.h"
#include "misc/aval.h"
#include "misc/ctxt.h"
#include "misc/timestr.h"
#include "mpegts/mpegts.h"
#include "strops/strops.h"
#include "timeop/timeop.h"
#include "unit/operation.h"

namespace {

// The result, and what became of 77.
void size(engine &e, const operation &op) {
  int64_t value = 77;
  errno = ERANGE; // of an earlier call
  const int rc = a2int64(op.text().c_str(), &value);
  fprintf(e.out, "%d %ld\n", rc, value);
}

void level(engine &e, const operation &op) {
  int level = 77;
  const int rc = match_log_level(op.text().c_str(), &level);
  fprintf(e.out, "%d %d %s %s\n", rc, level, get_level_tag(level), log_level_str(level));
}

// A line, whose length is told behind it.
void line(engine &e, const operation &op) {
  log_ctx log = {};
  log_default(&log, op.has("nowhere") ? nullptr : e.out);
  log_mirror(&log, op.has("mirrored") ? e.out : nullptr);
  log_timefmt(&log, op.get<uint32_t>("flags", f_NO_TIME));
  log_set_pid(&log, op.get<pid_t>("pid", 0));
  log_set_group(&log, mk_n64_tag(op.get("group")));
  config_syslog(&log, "korva", LOG_CONS, LOG_LOCAL3);
  if (!op.has("syslog"))
    disable_syslog(&log);
  g_sigctx = op.has("handler") ? SIGTERM : 0;
  log_statement({.mod = 0}, &log, op.number<int>(), "%s",
                std::string(op.get<size_t>("letters", 1), 'y').c_str());
  g_sigctx = 0;
  fprintf(e.out, " %zu\n", log.total_out);
}

void facility(engine &e, const operation &op) {
  const int facility = str2fac(op.text().c_str());
  fprintf(e.out, "%d %s\n", facility, fac2str(facility));
}

void distance(engine &e, const operation &op) {
  const auto first = op.number<uint64_t>(1), last = op.number<uint64_t>(2);
  fprintf(e.out, "%lu %u\n", calc_pcr_delta(first, last, op.get("flags", 0u)),
          pcr_delta_ms(first, last));
}

// The zone is set, or only told when the environment asks for another one.
void zone(engine &e, const operation &op) {
  setenv("TZ", op.text().c_str(), 1);
  const char *name = get_timezone(op.has("kept") ? 0 : 1);
  fprintf(e.out, "[%s]\n", name ? name : "");
}

void stamp(engine &e, const operation &op) {
  const timespec time = {op.number<time_t>(1), op.number<long>(2)};
  char text[64] = "";
  const int n = mk_timestr(&time, op.get("flags", 0u), text, op.get("room", sizeof text));
  fprintf(e.out, "%d [%s]\n", n, text);
}

void stream_time(engine &e, const operation &op) {
  char text[64] = "";
  ms2timestr(op.number<uint64_t>(), text, op.get("room", sizeof text));
  fprintf(e.out, "%s\n", text);
}

void span(engine &e, const operation &op) {
  char text[64] = "";
  const int rc = mk_timespan(op.number<long>(), text, op.get("room", sizeof text));
  fprintf(e.out, "%d [%s]\n", rc, text);
}

void end_of_day(engine &e, const operation &op) {
  fprintf(e.out, "%ld\n", get_endofday_utime(op.number<time_t>()));
}

// "less 10 900000000 12 100999999": the second time without the first.
void less(engine &e, const operation &op) {
  const timespec first{op.number<time_t>(1), op.number<long>(2)};
  const timespec second{op.number<time_t>(3), op.number<long>(4)};
  const timespec delta = timespec_sub(second, first);
  fprintf(e.out, "%ld %ld %ld\n", tms2ms(&first), tms2ms(&second), tms2ms(&delta));
}

// Samples, and where a period ends.
void average(engine &e, const operation &op) {
  aggr_val av = {};
  for (size_t i = 1; i < op.words.size(); ++i)
    if (op.words[i] == "reset")
      reset_aval(&av);
    else
      inc_aval(&av, op.number<uint64_t>(i));
  dump_aval(e.out, "gap", &av);
}

// What a settings file gives for a key, in place of what is there.
void setting(engine &e, const operation &op) {
  config_t file;
  config_init(&file);
  config_read_string(&file, "a = \"1234567\"; b = \"12345678\"; c = 12;");
  std::string text = "former!?"; // "?" is behind its end
  const std::string dflt = op.get("otherwise");
  const int rc = load_config_setting_str(config_root_setting(&file), op.text().c_str(), text.data(),
                                         8, dflt.empty() ? nullptr : dflt.c_str());
  std::ranges::replace(text, '\0', '.');
  fprintf(e.out, "%d %s\n", rc, text.c_str());
  config_destroy(&file);
}

// Lines in a buffer of so many bytes, and whether that differs from a closed one.
void lines(engine &e, const operation &op) {
  ctxt_spec text = {}, closed = {};
  add_ctxt_line(&closed, "dropped");
  EXPECT_EQ(open_ctxt(&text, op.number()), 0);
  for (size_t i = 2; i < op.words.size(); ++i)
    add_ctxt_line(&text, "%s", op.text(i).c_str());
  dump_ctxt(e.out, "title", &text);
  fprintf(e.out, "%d %d\n", cmp_ctxt(&text, &closed), cmp_ctxt(&closed, &text));
  close_ctxt(&text);
}

bool nests_in_conversion;
time_t uptime; // where not 0, the machine has run for so many seconds and 123456789 ns

} // namespace

const std::map<std::string, action> library_calls = {
    {"size", size},
    {"line", line},
    {"setting", setting},
    {"lines", lines},
    {"level", level},
    {"facility", facility},
    {"zone", zone},
    {"distance", distance},
    {"span", span},
    {"stamp", stamp},
    {"average", average},
    {"less", less},
    {"end_of_day", end_of_day},
    {"stream_time", stream_time},
    {"uptime", [](engine &, const operation &op) { uptime = op.number<time_t>(); }},
    {"nest", [](engine &, const operation &op) { nests_in_conversion = op.number() != 0; }}};

// In the C library's place: with "nest 1" a handler logs while a line is being stamped.
extern "C" tm *gmtime_r(const time_t *t, tm *out) noexcept {
  char text[64];
  const timespec second{1, 0};
  if (nests_in_conversion)
    fprintf(stderr, "nested: %d\n", mk_timestr(&second, 0, text, sizeof text));
  return reinterpret_cast<decltype(&gmtime_r)>(dlsym(RTLD_NEXT, "gmtime_r"))(t, out);
}

// In the C library's place.
extern "C" int clock_gettime(clockid_t clock, timespec *out) noexcept {
  if (clock != CLOCK_MONOTONIC || uptime == 0)
    return static_cast<int>(syscall(SYS_clock_gettime, clock, out));
  *out = {uptime, 123456789};
  return 0;
}

// In the C library's place.
extern "C" void syslog(int priority, const char *format, ...) {
  va_list args;
  va_start(args, format);
  fprintf(stderr, "syslog %d: ", priority);
  vfprintf(stderr, format, args);
  fputc('\n', stderr);
  va_end(args);
}

TEST(library, ends_the_process) {
  const timespec early{10, 0}, late{12, 0};
  EXPECT_DEATH(timespec_sub(early, late),
               "^unit_tests: libtollum/include/timeop/timeop\\.h:[0-9]+: timespec_sub: "
               "Assertion `timespeccmp\\(delta, pb, >=\\)' failed\\.\n$");
  timespec now;
  EXPECT_DEATH(set_clk_now(&now, 12345), "^clock_gettime: Invalid argument\n$");
  log_default(g_log, stderr);
  EXPECT_DEATH(calc_pcr_delta(1000, 500, PCR_ABORT_BACKWARDS), "PCR last=500 < first=1000");
}
