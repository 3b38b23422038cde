// What is read and from where: files of every kind and size, parts of them, pipes, signals.
#include <csignal>
#include <fstream>

#include "cli/korva.h"
#include "support/ts_builder.h"

namespace {

// Groups of PAT, PMT and three video packets, each of which can be understood by itself.
ts_stream capture(size_t packets) {
  ts_stream s;
  for (size_t i = 0; i < packets; ++i)
    if (i % 5 == 0)
      s.pat({{1, 100}});
    else if (i % 5 == 1)
      s.pmt(100, {.program = 1, .pcr_pid = 101, .es = {{0x1b, 101}}});
    else
      s.data(101);
  return s;
}

std::string text_of(const ts_stream &stream) {
  const ts_bytes bytes = stream.bytes();
  return {bytes.begin(), bytes.end()};
}

void write_file(const std::string &path, const std::string &content, std::streamoff at = 0) {
  std::ofstream out(path, std::ios::binary);
  if (at > 0)
    out.seekp(at);
  EXPECT_TRUE(out << content << std::flush);
}

// What a run says about reading.
words told(const run_result &r) {
  words out = lines_of(r.err);
  std::erase_if(out, [](const std::string &line) {
    const auto has = [&](const char *what) { return line.find(what) != line.npos; };
    return !has("(ERR)") && !has("Moved to") && !has("bytes/records") && !has("Processed/");
  });
  return out;
}

} // namespace

TEST(input, files_and_parts_of_them) {
  const temp_dir dir;
  const std::string ten = text_of(capture(10));
  ts_stream nulls;
  while (nulls.packets.size() < 5001)
    nulls.null();
  const std::pair<const char *, std::string> files[] = {
      {"ten.ts", ten},
      {"many.ts", text_of(capture(250))},
      {"one.ts", ten.substr(0, 188)},
      {"two.ts", ten.substr(0, 2 * 188)},
      {"partial.ts", ten.substr(0, 5 * 188 + 100)},
      {"short.ts", ten.substr(0, 187)},
      {"empty.ts", ""},
      {"sync1.ts", std::string(ten).replace(0, 1, "H")},
      {"sync8.ts", std::string(ten).replace(7 * 188, 1, "H")},
      {"idle.ts", text_of(nulls)},
      {"nearly_idle.ts", text_of(nulls).substr(2 * 188)},
  };
  for (const auto &[name, content] : files)
    write_file(dir.file(name), content);
  write_file(dir.file("far.ts"), ten, 22'845'571LL * 188); // the first packet behind 4 GiB

  for (const test_case &c : table("input.txt")) {
    SCOPED_TRACE(testing::PrintToString(c.args));
    const run_result r = korva(c.args, {.cwd = dir.path});
    EXPECT_EQ(r.status, c.status);
    EXPECT_EQ(r.out, "\n");
    EXPECT_EQ(told(r), c.lines);
  }
}

TEST(input, pipes) {
  const temp_dir dir;
  const std::string many = text_of(capture(250)), path = dir.file("pipe");
  mkfifo(path.c_str(), 0600);
  for (const test_case &c : table("pipes.txt")) {
    SCOPED_TRACE(testing::PrintToString(c.args));
    const running program = start_korva(c.args, {.input = many, .cwd = dir.path});
    if (c.args.back() == "pipe")
      write_file(path, c.status == 0 ? many : ""); // opening waits for the program
    const run_result r = masked(finish(program));
    EXPECT_EQ(r.status, c.status);
    EXPECT_EQ(r.out, c.status == 0 ? "\n" : "");
    EXPECT_EQ(told(r), c.lines);
  }
}

// After a signal the rest is read and counted, but not analyzed.
TEST(input, signals) {
  const temp_dir dir;
  mkfifo(dir.file("pipe").c_str(), 0600);
  ts_stream first = capture(99);
  first.lose(101).data(101); // the alert shows that the first block was analyzed
  const test_case c = table("signal.txt").at(0);
  for (const int sig : {SIGINT, SIGTERM}) {
    const std::string handled = "\nSIG(" + std::to_string(sig) + ")\n";
    SCOPED_TRACE(handled);
    const running program = start_korva(c.args, {.cwd = dir.path});
    std::ofstream pipe(dir.file("pipe"));
    pipe << text_of(first) << std::flush;
    EXPECT_EQ(mask(read_until(program.out, "\n")),
              "<time> <pid>  ALERT CC-BRK x 101 0 10 12 0:0[100]\n");
    kill(program.pid, sig);
    EXPECT_EQ(read_until(program.out, ")\n"), handled);
    pipe << text_of(capture(150));
    pipe.close();
    const run_result r = masked(finish(program));
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "\n");
    EXPECT_EQ(told(r), c.lines);
  }
}

// A lost output costs no more than that output; standard error has one line about it at its end.
TEST(input, closed_and_full_standard_streams) {
  const std::string report = expected("clean.err");
  const std::array<std::string, 3> cases[] = {{"<&-", "\n", report},
                                              {">&-", "", report},
                                              {"2>&-", "\n", ""},
                                              {"<&- >&- 2>&-", "", ""},
                                              {">/dev/full", "", report + "korva: "}};
  for (const auto &[redirection, out, err] : cases) {
    SCOPED_TRACE(redirection);
    const std::string command = "exec " KORVA_PROGRAM " clean.ts " + redirection;
    const run_result r = masked(run({"sh", "-c", command}, {.cwd = KORVA_SAMPLES}));
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, out);
    EXPECT_EQ(r.err.substr(0, err.size()), err);
    EXPECT_EQ(lines_of(r.err).size(), lines_of(err).size());
  }
}
