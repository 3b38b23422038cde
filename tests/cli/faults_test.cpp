// Faults of the surroundings: whatever fails around korva, it ends in order and what it had found
// by then is on its streams.

#include <csignal>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "support/run.h"
#include "support/ts_builder.h"

namespace {

const std::string damaged = KORVA_SAMPLES "/damaged.ts";

run_result shell(const std::string &command, const run_spec &spec = {}) {
  return run({"/bin/bash", "-c", command}, spec);
}

size_t count(const std::string &text, const std::string &what) {
  size_t n = 0;
  for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1))
    ++n;
  return n;
}

bool has(const std::string &text, const std::string &what) {
  return text.find(what) != std::string::npos;
}

constexpr char lost_out[] = "korva: standard output could not be written in full\n";
constexpr char lost_err[] = "korva: standard error could not be written in full\n";

TEST(faults, standard_streams) {
  const std::string korva = KORVA_PROGRAM " -a on -A max_zreset_time=0 " + damaged;
  const run_result whole = shell(korva);
  ASSERT_EQ(count(whole.out, "ALERT"), 4u);
  ASSERT_EQ(count(whole.err, " ALERT "), 4u);

  const run_result full_out = shell(korva + " >/dev/full");
  EXPECT_EQ(full_out.status, 0);
  EXPECT_EQ(mask(full_out.err), mask(whole.err) + lost_out);

  const run_result full_err = shell(korva + " 2>/dev/full");
  EXPECT_EQ(full_err.status, 0);
  EXPECT_EQ(mask(full_err.out), mask(whole.out));

  for (const char *closed : {" <&-", " >&-", " 2>&-", " <&- >&- 2>&-"}) {
    const run_result r = shell(korva + closed);
    EXPECT_EQ(r.status, 0) << closed;
    EXPECT_FALSE(has(r.err, lost_out) || has(r.err, lost_err)) << closed;
  }

  // A reader that has gone ends the program the usual way.
  const run_result gone = shell("set -o pipefail; { sleep 0.2; exec " + korva + "; } | true");
  EXPECT_EQ(gone.status, 128 + SIGPIPE);
  EXPECT_EQ(count(gone.err, " ALERT "), 1u); // it stopped at its first line to the pipe
}

#ifdef KORVA_FAULTS // not with a sanitizer
TEST(faults, read_error_ends_the_run_like_the_end_of_the_file) {
  const std::string preload = "LD_PRELOAD=" KORVA_FAULTS;
  const run_result r = run({KORVA_PROGRAM, "-v", damaged}, {.env = {preload, "FAIL_READ=2"}});
  EXPECT_EQ(r.status, 0);
  EXPECT_TRUE(has(r.err, "300800/1600 bytes/records read from"));
  EXPECT_TRUE(has(r.err, "tsan_stats END"));
}

// Refuses each allocation in turn, until the program makes no more.
TEST(faults, every_refused_allocation_is_survived) {
  temp_dir dir;
  ts_stream s;
  s.pat({{1, 100}});
  s.pmt(100, {.pcr_pid = 101, .es = {{0x1b, 101}, {0x0f, 102}}});
  s.data(101);
  s.pat({{1, 100}, {2, 200}}, {.version = 1});
  s.pmt(100, {.pcr_pid = 101, .es = {{0x1b, 101}, {0x0f, 103}}, .version = 1});
  s.lose(101).data(101);
  s.write(dir.file("s.ts"));

  std::string refused;
  for (int n = 1; n < 100; ++n) {
    const run_result r =
        run({KORVA_PROGRAM, dir.file("s.ts")},
            {.env = {"LD_PRELOAD=" KORVA_FAULTS, "FAIL_CALLOC=" + std::to_string(n)}});
    if (r.status == 99)
      break;
    const bool no_context = has(r.err, "tsan_init: calloc(");
    EXPECT_EQ(r.status, no_context ? 12 : 0) << n << "\n" << r.err;
    EXPECT_EQ(has(r.err, "tsan_stats END"), !no_context) << n;
    if (const size_t at = r.err.find(": calloc("); at != std::string::npos)
      refused += r.err.substr(r.err.rfind(' ', at - 1), at - r.err.rfind(' ', at - 1));
  }
  for (const char *place :
       {"tsan_init", "dup_psi_sec", "another_PAT", "merge_PATs", "open_ctxt", "update_PMT"})
    EXPECT_TRUE(has(refused, place)) << place << " not among" << refused;
}
#endif

TEST(faults, signals_twice_while_the_reader_is_slow) {
  temp_dir dir;
  const std::string fifo = dir.file("fifo");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  running program = start({KORVA_PROGRAM, "-v", "-a", "on", fifo});
  const int writer = open(fifo.c_str(), O_WRONLY);
  const std::string capture = read_file(damaged);
  const auto feed = [&](size_t from, size_t size) {
    while (size > 0) {
      const ssize_t n = write(writer, capture.data() + from, size);
      ASSERT_GT(n, 0);
      from += static_cast<size_t>(n);
      size -= static_cast<size_t>(n);
    }
  };
  feed(0, 1000 * 188);
  usleep(200'000);
  kill(program.pid, SIGINT);
  kill(program.pid, SIGTERM);
  usleep(50'000);
  feed(1000 * 188, 991 * 188);
  close(writer);
  const run_result r = finish(program);
  EXPECT_EQ(r.status, 0);
  EXPECT_TRUE(has(r.out, "\nSIG(2)\n") && has(r.out, "\nSIG(15)\n")) << r.out;
  EXPECT_TRUE(has(r.err, "374308/1000 bytes/records read from")) << r.err;
  EXPECT_EQ(count(r.err, " ALERT CC-BRK"), 1u) << r.err;
}

} // namespace
