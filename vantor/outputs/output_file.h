// A file that is written beside the logs, in whole pieces.
//
// A file gets its name, or its new content, only when all of it is there: until then the old one
// stays, whatever ends the program. A pipe, a device and a descriptor that the program was started
// with are written as they stand, piece by piece.
#pragma once

#include <string_view>

#include <sys/types.h>

#include "outputs/output_place.h"

class output_file {
public:
  output_file() = default;
  output_file(const output_file &) = delete;
  output_file &operator=(const output_file &) = delete;
  ~output_file();

  // Opens what is at `place`, or finds room for a new file there. Returns 0, or an errno.
  int open(const output_place &place);

  bool is_open() const { return fd != -1; }

  // Hands all of `text` to the system before it returns. After a failure nothing more is written.
  void write(std::string_view text);

  // The errno of the first failure so far, or 0.
  int error() const { return failure; }

  // Closes the file, which is whole. Returns 0, or the errno of the first failure; the old file is
  // still there then.
  int complete();

private:
  int open_descriptor(int number);
  int open_draft();
  int publish();

  int fd = -1; // of the pipe, device or descriptor; else of a draft without a name
  int failure = 0;
  bool is_draft = false, replaces = false;
  mode_t mode = 0; // of the file that is replaced
  char target[PATH_MAX] = {};
};
