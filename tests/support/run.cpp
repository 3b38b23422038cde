#include "support/run.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <regex>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace {

using steady = std::chrono::steady_clock;

struct pipe_ends {
  int read = -1, write = -1;
};

pipe_ends make_pipe() {
  std::array<int, 2> fd{};
  if (pipe2(fd.data(), O_CLOEXEC) != 0)
    throw std::system_error(errno, std::generic_category(), "pipe2");
  return {fd[0], fd[1]};
}

void close_fd(int &fd) {
  if (fd >= 0)
    close(fd);
  fd = -1;
}

std::vector<std::string> environment(const run_spec &spec) {
  std::vector<std::string> env = {"TZ=UTC"};
  for (const char *name : {"PATH", "ASAN_OPTIONS", "LSAN_OPTIONS", "TSAN_OPTIONS", "UBSAN_OPTIONS"})
    if (const char *value = std::getenv(name))
      env.push_back(std::string(name) + "=" + value);
  env.insert(env.end(), spec.env.begin(), spec.env.end());
  return env;
}

// A null-terminated array of C strings over `words`.
std::vector<char *> c_array(std::vector<std::string> &words) {
  std::vector<char *> out;
  out.reserve(words.size() + 1);
  for (std::string &word : words)
    out.push_back(word.data());
  out.push_back(nullptr);
  return out;
}

// Sends as much of `input` as the pipe takes; closes it when done or when nobody reads.
void feed(int &fd, std::string_view &input) {
  const ssize_t n = input.empty() ? 0 : write(fd, input.data(), input.size());
  if (n > 0)
    input.remove_prefix(static_cast<size_t>(n));
  if (input.empty() || (n < 0 && errno != EAGAIN && errno != EINTR))
    close_fd(fd);
}

// Takes what is there; closes the pipe at its end.
void drain(int &fd, std::string &text) {
  std::array<char, 65536> buf;
  const ssize_t n = read(fd, buf.data(), buf.size());
  if (n > 0)
    text.append(buf.data(), static_cast<size_t>(n));
  else if (n == 0 || errno != EINTR)
    close_fd(fd);
}

// Serves the three pipes until both outputs are closed or the time is over (false).
bool serve(running &program, run_result &result) {
  const auto deadline = steady::now() + std::chrono::milliseconds(program.spec.timeout_ms);
  std::string_view input = program.spec.input;
  while (program.out >= 0 || program.err >= 0) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - steady::now());
    std::array<pollfd, 3> fds = {
        {{program.in, POLLOUT, 0}, {program.out, POLLIN, 0}, {program.err, POLLIN, 0}}};
    const int ready = poll(fds.data(), fds.size(), static_cast<int>(std::max(left.count(), 0L)));
    if (ready == 0)
      return false;
    if (ready < 0)
      continue;
    if (fds[0].revents)
      feed(program.in, input);
    if (fds[1].revents)
      drain(program.out, result.out);
    if (fds[2].revents)
      drain(program.err, result.err);
  }
  return true;
}

} // namespace

running start(const std::vector<std::string> &argv, const run_spec &spec) {
  std::vector<std::string> words = argv, env = environment(spec);
  const std::vector<char *> c_words = c_array(words), c_env = c_array(env);
  const pipe_ends in = make_pipe(), out = make_pipe(), err = make_pipe();

  const pid_t pid = fork();
  if (pid == 0) {
    dup2(in.read, STDIN_FILENO);
    dup2(out.write, STDOUT_FILENO);
    dup2(err.write, STDERR_FILENO);
    if (spec.cwd.empty() || chdir(spec.cwd.c_str()) == 0)
      execvpe(c_words[0], c_words.data(), c_env.data());
    dprintf(STDERR_FILENO, "cannot run %s: %s\n", c_words[0], std::strerror(errno));
    _exit(127);
  }
  if (pid < 0)
    throw std::system_error(errno, std::generic_category(), "fork");
  close(in.read);
  close(out.write);
  close(err.write);
  fcntl(in.write, F_SETFL, O_NONBLOCK);
  return {.pid = pid, .in = in.write, .out = out.read, .err = err.read, .spec = spec};
}

run_result finish(running program) {
  run_result result;
  // The program may end without reading its input.
  const auto old_handler = std::signal(SIGPIPE, SIG_IGN);
  if (!serve(program, result)) {
    result.timed_out = true;
    kill(program.pid, SIGKILL);
    ADD_FAILURE() << "killed after " << program.spec.timeout_ms << " ms";
  }
  int status = 0;
  while (waitpid(program.pid, &status, 0) < 0 && errno == EINTR)
    ;
  for (int *fd : {&program.in, &program.out, &program.err})
    close_fd(*fd);
  std::signal(SIGPIPE, old_handler);

  if (WIFEXITED(status))
    result.status = WEXITSTATUS(status);
  else
    result.signal = WTERMSIG(status);
  return result;
}

run_result run(const std::vector<std::string> &argv, const run_spec &spec) {
  return finish(start(argv, spec));
}

std::string mask(std::string_view text) {
  static constexpr auto by_line = std::regex::ECMAScript | std::regex::multiline;
  static const std::pair<std::regex, const char *> rules[] = {
      {std::regex(R"(^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{6} UTC )", by_line), "<time> "},
      {std::regex(R"(^<time> \d+  )", by_line), "<time> <pid>  "},
      {std::regex(R"(( STARTING| EXIT\(\d+\))\. PID=\d+$)", by_line), "$1. PID=<pid>"},
      {std::regex(R"(\(0x[0-9a-f]{6,16}\))"), "(<addr>)"},
      {std::regex(R"(\(nuvreck\) [0-9a-f]{8}; built)"), "(nuvreck) <checksum>; built"},
  };
  std::string out(text);
  for (const auto &[pattern, words] : rules)
    out = std::regex_replace(out, pattern, words);
  return out;
}

std::string read_file(const std::filesystem::path &path) {
  std::ifstream file(path, std::ios::binary);
  EXPECT_TRUE(file) << "cannot read " << path;
  return {std::istreambuf_iterator<char>(file), {}};
}

temp_dir::temp_dir() {
  std::string name = std::filesystem::temp_directory_path() / "korva-test-XXXXXX";
  if (!mkdtemp(name.data()))
    throw std::system_error(errno, std::generic_category(), "mkdtemp");
  path = name;
}

temp_dir::~temp_dir() {
  std::error_code ignored;
  std::filesystem::remove_all(path, ignored);
}
