#include "outputs/output_file.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// Waits until a pipe that another program has made non-blocking takes more.
void wait_for_room(int fd) {
  pollfd room = {.fd = fd, .events = POLLOUT, .revents = 0};
  poll(&room, 1, -1);
}

int write_all(int fd, std::string_view text) {
  while (!text.empty()) {
    const ssize_t n = ::write(fd, text.data(), text.size());
    if (n >= 0)
      text.remove_prefix(static_cast<size_t>(n));
    else if (errno == EAGAIN)
      wait_for_room(fd);
    else if (errno != EINTR)
      return errno;
  }
  return 0;
}

// Copies all of `from` to where `to` stands. Returns 0 or an errno.
int copy_all(int from, int to) {
  char part[1 << 14];
  off_t at = 0;
  for (;;) {
    const ssize_t n = pread(from, part, sizeof part, at);
    if (n <= 0)
      return n == 0 ? 0 : errno;
    if (const int err = write_all(to, {part, static_cast<size_t>(n)}))
      return err;
    at += n;
  }
}

// A file without a name in any directory that has room for one, or -1.
int open_elsewhere() {
  const char *directory = getenv("TMPDIR");
  char name[PATH_MAX];
  const int length = snprintf(name, sizeof name, "%s/korva-XXXXXX", directory ? directory : "/tmp");
  if (static_cast<size_t>(length) >= sizeof name)
    return -1;
  const int fd = mkostemp(name, O_CLOEXEC);
  if (fd != -1)
    unlink(name);
  return fd;
}

// A name beside `target` that is not taken.
bool free_name(const char *target, char (&name)[PATH_MAX]) {
  static unsigned taken;
  char directory[PATH_MAX];
  if (!directory_of(target, directory))
    return false;
  const int length = snprintf(name, sizeof name, "%s/.korva-%ld-%u", directory,
                              static_cast<long>(getpid()), taken++);
  return static_cast<size_t>(length) < sizeof name;
}

// Gives a draft a name. Returns 0 or an errno.
int link_draft(int draft, const char *name) {
  char link[64];
  snprintf(link, sizeof link, "/proc/self/fd/%d", draft);
  return linkat(AT_FDCWD, link, AT_FDCWD, name, AT_SYMLINK_FOLLOW) == 0 ? 0 : errno;
}

// Closes a file that was copied to, which is when a server may tell that it has no room.
int close_copy(int fd, int err) {
  return ::close(fd) == 0 || err != 0 ? err : errno;
}

int copy_draft(int draft, const char *name, bool replaces, mode_t mode) {
  const int fd = ::open(name, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  if (fd == -1)
    return errno;
  if (replaces)
    fchmod(fd, mode);
  const int err = close_copy(fd, copy_all(draft, fd));
  if (err != 0)
    unlink(name);
  return err;
}

// Where the directory takes no second file, the draft is copied over the old content once there is
// room for it.
int overwrite(int draft, const char *target) {
  const int fd = ::open(target, O_WRONLY | O_CLOEXEC);
  const off_t size = lseek(draft, 0, SEEK_END);
  if (fd == -1)
    return errno;
  int err = fallocate(fd, FALLOC_FL_KEEP_SIZE, 0, size) == 0 ? 0 : errno;
  if (err != ENOSPC && err != EDQUOT && err != EFBIG)
    err = copy_all(draft, fd);
  if (err == 0 && ftruncate(fd, size) != 0)
    err = errno;
  return close_copy(fd, err);
}

} // namespace

output_file::~output_file() {
  if (fd != -1)
    ::close(fd);
}

int output_file::open_descriptor(int number) {
  const int flags = fcntl(number, F_GETFL);
  if (flags == -1 || (flags & O_ACCMODE) == O_RDONLY)
    return EBADF;
  fd = fcntl(number, F_DUPFD_CLOEXEC, 0);
  return fd == -1 ? errno : 0;
}

int output_file::open_draft() {
  is_draft = true;
  char directory[PATH_MAX];
  if (!directory_of(target, directory))
    return ENAMETOOLONG;
  fd = ::open(directory, O_TMPFILE | O_RDWR | O_CLOEXEC, 0666);
  if (fd == -1 && !replaces && access(directory, W_OK | X_OK) != 0)
    return errno;
  if (fd == -1)
    fd = open_elsewhere();
  return fd == -1 ? errno : 0;
}

int output_file::open(const output_place &place) {
  failure = 0;
  is_draft = replaces = false;
  if (place.fd != -1)
    return open_descriptor(place.fd);
  fd = ::open(place.name, O_WRONLY | O_NOCTTY | O_CLOEXEC);
  if (fd == -1 && errno != ENOENT)
    return errno;
  memcpy(target, place.name, sizeof target);
  if (fd == -1)
    return open_draft();

  struct stat st;
  if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode))
    return 0;
  ::close(fd);
  replaces = true;
  mode = st.st_mode & 0777;
  const int err = open_draft();
  if (err != 0)
    return err;
  [[maybe_unused]] const int kept = fchown(fd, st.st_uid, st.st_gid); // as far as that is allowed
  fchmod(fd, mode);
  return 0;
}

void output_file::write(std::string_view text) {
  if (failure == 0)
    failure = write_all(fd, text);
}

// Puts the draft in the place of the old file. Returns 0 or an errno.
int output_file::publish() {
  char name[PATH_MAX];
  int err = ENAMETOOLONG;
  do {
    if (!free_name(target, name))
      break;
    err = link_draft(fd, name);
    if (err != 0 && err != EEXIST)
      err = copy_draft(fd, name, replaces, mode);
  } while (err == EEXIST);
  if (err == 0) {
    if (rename(name, target) == 0)
      return 0;
    err = errno;
    unlink(name);
  }
  return replaces && err != ENOSPC && err != EDQUOT ? overwrite(fd, target) : err;
}

int output_file::complete() {
  if (failure == 0 && is_draft)
    failure = publish();
  if (::close(fd) != 0 && failure == 0)
    failure = errno;
  fd = -1;
  return failure;
}
