// What the end-to-end tests share: the program, its output, the tables of runs in expected/.
#pragma once

#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "support/run.h"

using words = std::vector<std::string>;

inline std::string expected(const std::string &name) {
  return read_file(KORVA_SAMPLES "/../tests/cli/expected/" + name);
}

inline std::string replace_all(std::string text, const std::string &what, const std::string &by) {
  for (size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += by.size())
    text.replace(at, what.size(), by);
  return text;
}

// The masked output of a run; the program's own path reads as "korva".
inline run_result masked(run_result r) {
  r.out = mask(r.out);
  r.err = mask(replace_all(r.err, KORVA_PROGRAM, "korva"));
  return r;
}

inline running start_korva(words args, const run_spec &spec) {
  args.insert(args.begin(), KORVA_PROGRAM);
  return start(args, spec);
}

inline run_result korva(const words &args, const run_spec &spec = {}) {
  return masked(finish(start_korva(args, spec)));
}

// The lines that contain `what`.
inline words lines_with(const std::string &text, std::string_view what) {
  words out;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);)
    if (line.find(what) != std::string::npos)
      out.push_back(line);
  return out;
}

inline words lines_of(const std::string &text) {
  return lines_with(text, "");
}

// One run of a table: "$ arguments", "= status", and lines of whatever the table expects.
struct test_case {
  words args = {};
  int status = 0;
  words lines = {};
};

// Reads a table; lines with # are comments. In it, {usage}, {app} and {exit} stand for the usage
// text, the program's name and version, and the last line of the log, {x62} for so many letters x.
inline std::vector<test_case> table(const std::string &name) {
  const std::string usage = expected("usage.txt");
  std::string text = expected(name);
  for (size_t at; (at = text.find("{x")) != std::string::npos;)
    text.replace(at, text.find('}', at) + 1 - at, std::stoul(text.substr(at + 2)), 'x');
  text = replace_all(text, "{usage}\n", replace_all(usage, "\n", "{}\n"));
  text = replace_all(text, "{exit}", "<time> (NRM)  FSCN  {app} EXIT({status}). PID=<pid>");
  text = replace_all(text, "{app}", usage.substr(0, usage.find('\n')));

  std::vector<test_case> cases;
  for (const std::string &line : lines_of(text)) {
    std::istringstream rest(line.substr(line.empty() ? 0 : 1));
    if (line.starts_with('$'))
      cases.push_back({{std::istream_iterator<std::string>(rest), {}}});
    else if (line.starts_with('='))
      rest >> cases.back().status;
    else if (!line.empty() && !line.starts_with('#'))
      cases.back().lines.push_back(replace_all(
          replace_all(line, "{status}", std::to_string(cases.back().status)), "{}", ""));
  }
  EXPECT_FALSE(cases.empty());
  return cases;
}

// Reads from a running program's output until `end` has come.
inline std::string read_until(int fd, std::string_view end) {
  std::string text;
  pollfd ready = {fd, POLLIN, 0};
  for (char c; !text.ends_with(end) && poll(&ready, 1, 10'000) == 1 && read(fd, &c, 1) == 1;)
    text += c;
  return text;
}
