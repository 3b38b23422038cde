#include "outputs/output_place.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

enum { MAX_LINKS = 40 }; // as many as the kernel follows

const char *last_part(const char *name) {
  const char *slash = strrchr(name, '/');
  return slash ? slash + 1 : name;
}

bool is_same(const struct stat &a, const struct stat &b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// The descriptor of this process that /dev/fd/3 and its like stand for, or -1.
int own_descriptor(const char *name) {
  const char *number = last_part(name);
  char directory[PATH_MAX];
  struct stat at, own;
  if (number[0] == '\0' || number[strspn(number, "0123456789")] != '\0' ||
      !directory_of(name, directory) || stat(directory, &at) != 0 ||
      stat("/proc/self/fd", &own) != 0 || !is_same(at, own))
    return -1;
  return static_cast<int>(std::min<long>(strtol(number, nullptr, 10), INT_MAX));
}

// Replaces the last part of a name by what the link there says. Returns 0 or an errno.
int follow_link(char (&name)[PATH_MAX], const char *link) {
  char next[PATH_MAX];
  const size_t kept = link[0] == '/' ? 0 : static_cast<size_t>(last_part(name) - name);
  const int length = snprintf(next, sizeof next, "%.*s%s", static_cast<int>(kept), name, link);
  if (static_cast<size_t>(length) >= sizeof next)
    return ENAMETOOLONG;
  memcpy(name, next, static_cast<size_t>(length) + 1);
  return 0;
}

file_id id_of(const struct stat &st) {
  return {.is_known = !S_ISCHR(st.st_mode), .device = st.st_dev, .inode = st.st_ino};
}

} // namespace

bool directory_of(const char *name, char (&directory)[PATH_MAX]) {
  const auto length = static_cast<size_t>(last_part(name) - name);
  if (length >= sizeof directory)
    return false;
  memcpy(directory, length == 0 ? "." : name, std::max<size_t>(length, 1));
  directory[std::max<size_t>(length, 1)] = '\0';
  return true;
}

int find_place(const char *path, output_place &place) {
  if (strcmp(path, "-") == 0) {
    place.fd = STDOUT_FILENO;
    return 0;
  }
  if (path[0] == '\0')
    return ENOENT;
  if (strlen(path) >= sizeof place.name)
    return ENAMETOOLONG;
  memcpy(place.name, path, strlen(path) + 1);
  for (int links = 0; links < MAX_LINKS; ++links) {
    place.fd = own_descriptor(place.name);
    char link[PATH_MAX];
    const ssize_t length = place.fd == -1 ? readlink(place.name, link, sizeof link - 1) : -1;
    if (length == -1) // no link, or nothing there
      return 0;
    link[length] = '\0';
    if (const int err = follow_link(place.name, link))
      return err;
  }
  return ELOOP;
}

file_id id_of(int fd) {
  struct stat st;
  return fstat(fd, &st) == 0 ? id_of(st) : file_id{};
}

file_id id_of(const char *path) {
  struct stat st;
  return stat(path, &st) == 0 ? id_of(st) : file_id{};
}

file_id id_of(const output_place &place) {
  if (place.fd != -1)
    return id_of(place.fd);
  struct stat st;
  if (stat(place.name, &st) == 0)
    return id_of(st);
  char directory[PATH_MAX];
  if (!directory_of(place.name, directory))
    return {};
  file_id id = id_of(directory);
  id.name = last_part(place.name);
  return id;
}

bool is_same_file(const file_id &a, const file_id &b) {
  return a.is_known && b.is_known && a.device == b.device && a.inode == b.inode &&
         strcmp(a.name, b.name) == 0;
}
