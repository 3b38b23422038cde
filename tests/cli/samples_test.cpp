// Whole outputs: the two samples, and everything the program says about a tiny stream.
#include "cli/korva.h"
#include "support/ts_builder.h"

namespace {

void check(const run_result &r, const std::string &out, const std::string &err) {
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, out);
  EXPECT_EQ(r.err, err);
}

} // namespace

TEST(samples, clean) {
  check(korva({"clean.ts"}, {.cwd = KORVA_SAMPLES}), "\n", expected("clean.err"));
}

TEST(samples, damaged_with_either_log_or_both) {
  const std::string terse = expected("damaged.out"), human = expected("damaged.err");
  std::string hushed = human;
  for (const std::string &line : lines_with(human, "  ALERT "))
    hushed = replace_all(hushed, line + "\n", "");
  const auto run_with = [](words args) {
    args.insert(args.end(), {"-A", "max_zreset_time=0", "-A", "pcr_delta=840", "-A",
                             "pdts_delta=180", "damaged.ts"});
    return korva(args, {.cwd = KORVA_SAMPLES});
  };
  check(run_with({"-a", "on"}), terse, human);
  check(run_with({}), "\n", human);
  check(run_with({"-H", "-a", "on"}), terse, hushed);
  check(run_with({"-H"}), "\n", hushed);
}

TEST(samples, all_that_is_said_about_a_tiny_stream) {
  const es_spec video = {0x1b, 101}, audio = {0x0f, 102, {0x0a, 4, 'e', 'n', 'g', 0}};
  pmt_spec pmt = {.program = 1, .pcr_pid = 101, .es = {video, audio}};
  ts_stream s;
  s.pat({{1, 100}});
  s.pmt(100, pmt);
  s.packet(17);
  s.pcr(101, 900'000);
  s.pes(101, {.pts = 907'200, .dts = 903'600});
  s.pes(102, {.pts = 905'400, .stream_id = 0xc0});
  s.null();
  s.pat({{1, 100}, {2, 200}}, {.version = 1});
  pmt.version = 1;
  pmt.es = {video, audio, {0x06, 103}, {0x05, 104}};
  s.pmt(100, pmt);
  const temp_dir dir;
  s.write(dir.file("tiny.ts"));
  check(korva({"-a", "on", "-v", "-v", "-k", "cc_t:pmt_d:pat_d", "-k", "all", "-A",
               "pdts_delta=100", "tiny.ts"},
              {.cwd = dir.path}),
        expected("verbose.out"), expected("verbose.err"));
}
