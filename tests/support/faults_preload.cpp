// Preloaded into the program under test: lets chosen calls of the C library fail.
//
//   FAIL_CALLOC=n   the n-th calloc (1-based) is refused
//   FAIL_READ=n     read(2) fails with EIO from the n-th call on, and gives less than asked before

#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>

extern "C" void *__libc_calloc(size_t count, size_t size);

// 0: none fails.
static long from_env(const char *name) {
  const char *text = getenv(name);
  return text ? atol(text) : 0;
}

extern "C" void *calloc(size_t count, size_t size) {
  static const long failing = from_env("FAIL_CALLOC");
  static long callocs;
  if (++callocs != failing)
    return __libc_calloc(count, size);
  errno = ENOMEM;
  return nullptr;
}

extern "C" ssize_t read(int fd, void *buf, size_t size) {
  static const long failing = from_env("FAIL_READ");
  static const auto real =
      reinterpret_cast<ssize_t (*)(int, void *, size_t)>(dlsym(RTLD_NEXT, "read"));
  static long reads;
  if (failing != 0 && ++reads >= failing) {
    errno = EIO;
    return -1;
  }
  constexpr size_t most = 300'988; // 1,601 packets: several reads, and a rest behind the last block
  return real(fd, buf, failing != 0 ? std::min(size, most) : size);
}
