// The runner itself: a hang, a dead-lock or a wrong mask here would hide what the program does.
#include "support/run.h"

#include <csignal>

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

TEST(run, passes_more_than_a_pipe_holds_both_ways) {
  const std::string big(1 << 20, 'x');
  const run_result r = run({"sh", "-c", "tee /dev/stderr; exit 7"}, {.input = big});
  EXPECT_EQ(r.status, 7);
  EXPECT_TRUE(r.out == big);
  EXPECT_TRUE(r.err == big);
}

TEST(run, program_that_ignores_its_input) {
  EXPECT_EQ(run({"true"}, {.input = std::string(1 << 20, 'x')}).status, 0);
}

TEST(run, environment_signal_and_missing_program) {
  EXPECT_EQ(run({"sh", "-c", "echo $TZ $A $HOME"}, {.env = {"A=b"}}).out, "UTC b\n");
  EXPECT_EQ(run({"sh", "-c", "kill -TERM $$"}).signal, SIGTERM);
  EXPECT_EQ(run({"/nonexistent"}).status, 127);
}

TEST(run, hanging_program_fails_the_test) {
  run_result r;
  EXPECT_NONFATAL_FAILURE(r = run({"sleep", "60"}, {.timeout_ms = 50}), "killed after 50 ms");
  EXPECT_TRUE(r.timed_out);
  EXPECT_EQ(r.signal, SIGKILL);
}

TEST(mask, replaces_only_what_differs_from_run_to_run) {
  EXPECT_EQ(mask("2024-05-06 07:08:09.123456 UTC NRM  FSCN  at 12  x streamtype=0x1b\n"
                 "2024-05-06 07:08:09.123456 UTC 4711  ALERT CC-BRK a 0 12\n"
                 "korva (x) 0.1-10.2 (nuvreck) 1a2b3c4d; built on 2018-09-24 EXIT(0). PID=4711\n"
                 "free: tsan[a] (0x55d0c8a9e2a0) PID=4711 pcr=00:00:01.400\n"),
            "<time> NRM  FSCN  at 12  x streamtype=0x1b\n"
            "<time> <pid>  ALERT CC-BRK a 0 12\n"
            "korva (x) 0.1-10.2 (nuvreck) <checksum>; built on 2018-09-24 EXIT(0). PID=<pid>\n"
            "free: tsan[a] (<addr>) PID=4711 pcr=00:00:01.400\n");
}
