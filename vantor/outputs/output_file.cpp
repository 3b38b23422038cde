#include "outputs/output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

static bool is_same_file(const struct stat &a, const char *path) {
  struct stat b;
  return stat(path, &b) == 0 && a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

output_file::~output_file() {
  close();
}

// Emptied only once it is known not to be the input.
int output_file::open(const char *path, const char *input) {
  fd = ::open(path, O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
  struct stat st;
  if (fd == -1 || fstat(fd, &st) != 0)
    return errno;
  if (!S_ISREG(st.st_mode))
    return 0;
  if (is_same_file(st, input))
    return EEXIST;
  return ftruncate(fd, 0) == 0 ? 0 : errno;
}

void output_file::write(std::string_view text) {
  while (failure == 0 && !text.empty()) {
    const ssize_t n = ::write(fd, text.data(), text.size());
    if (n >= 0)
      text.remove_prefix(static_cast<size_t>(n));
    else if (errno != EINTR)
      failure = errno;
  }
}

int output_file::close() {
  if (fd != -1 && ::close(fd) != 0 && failure == 0)
    failure = errno;
  fd = -1;
  return failure;
}
