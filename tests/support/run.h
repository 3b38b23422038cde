// Runs programs the way a shell would, for tests of the built program.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include <sys/types.h>

struct run_spec {
  std::string input = {};            // standard input
  std::vector<std::string> env = {}; // "NAME=value", on top of PATH, TZ=UTC and sanitizer options
  std::filesystem::path cwd = {};    // working directory; empty: the test's own
  int timeout_ms = 60'000;           // the program is killed and the test fails after that
};

struct run_result {
  int status = -1; // exit status, -1 if a signal ended the program
  int signal = 0;  // that signal
  bool timed_out = false;
  std::string out, err; // everything it wrote to standard output and standard error
};

// A program that was started. Each one must be handed to finish(), once.
struct running {
  pid_t pid = -1;
  int in = -1, out = -1, err = -1; // our ends of its standard streams
  run_spec spec = {};
};

// Starts argv[0] (a path, or a name to be found in PATH) with its arguments.
running start(const std::vector<std::string> &argv, const run_spec &spec = {});

// Feeds the input, collects the output and waits for the end.
run_result finish(running program);

// Both in one.
run_result run(const std::vector<std::string> &argv, const run_spec &spec = {});

// Replaces what differs from run to run by fixed words: the time stamp at a line's start (<time>),
// the process id behind it and in the start and exit lines (<pid>), addresses (<addr>) and the
// build checksum (<checksum>). Nothing else is touched.
std::string mask(std::string_view text);

// The whole content of a file; the test fails if it cannot be read.
std::string read_file(const std::filesystem::path &path);

// A directory of its own that goes when the object goes.
struct temp_dir {
  std::filesystem::path path;

  temp_dir();
  ~temp_dir();
  temp_dir(const temp_dir &) = delete;
  temp_dir &operator=(const temp_dir &) = delete;

  std::string file(std::string_view name) const { return path / name; }
};
