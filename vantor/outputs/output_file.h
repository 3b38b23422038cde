// A file that is written beside the logs, in whole pieces.
#pragma once

#include <string_view>

class output_file {
public:
  output_file() = default;
  output_file(const output_file &) = delete;
  output_file &operator=(const output_file &) = delete;
  ~output_file();

  // Creates the file at `path`, or empties the one there, unless that is the file at `input`, which
  // would be lost. Returns 0, or the errno of the failure (EEXIST for the input).
  int open(const char *path, const char *input);

  bool is_open() const { return fd != -1; }

  // Hands all of `text` to the system before it returns. After a failure nothing more is written.
  void write(std::string_view text);

  // Returns 0, or the errno of the first failure of a write or of the closing itself.
  int close();

private:
  int fd = -1;
  int failure = 0;
};
