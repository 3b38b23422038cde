// Preloaded into the program under test: lets chosen calls of the C library fail.
//
//   FAIL_CALLOC=n   the n-th calloc (1-based) is refused
//   FAIL_ALLOC=n    the n-th of all allocations (new among them) is refused
//   FAIL_ALLOCS=n   so are all from the n-th on
//   FAIL_READ=n     read(2) fails with EIO from the n-th call on, and gives less than asked before
//   STALL_WRITE=1   each other write(2) takes nothing, and leaves the error of an earlier call

#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>

extern "C" void *__libc_malloc(size_t size);
extern "C" void *__libc_realloc(void *old, size_t size);
extern "C" void *__libc_calloc(size_t count, size_t size);

// 0: none fails.
static long from_env(const char *name) {
  const char *text = getenv(name);
  return text ? atol(text) : 0;
}

// Counts an allocation of any kind; true: it is refused.
static bool is_refused() {
  static const long one = from_env("FAIL_ALLOC"), all_from = from_env("FAIL_ALLOCS");
  static long allocations;
  ++allocations;
  const bool refused = allocations == one || (all_from != 0 && allocations >= all_from);
  if (refused)
    errno = ENOMEM;
  return refused;
}

extern "C" void *malloc(size_t size) {
  return is_refused() ? nullptr : __libc_malloc(size);
}

extern "C" void *realloc(void *old, size_t size) {
  return is_refused() ? nullptr : __libc_realloc(old, size);
}

extern "C" void *calloc(size_t count, size_t size) {
  static const long failing = from_env("FAIL_CALLOC");
  static long callocs;
  if (++callocs != failing)
    return is_refused() ? nullptr : __libc_calloc(count, size);
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

extern "C" ssize_t write(int fd, const void *buf, size_t size) {
  static const bool stalls = from_env("STALL_WRITE") != 0;
  static const auto real =
      reinterpret_cast<ssize_t (*)(int, const void *, size_t)>(dlsym(RTLD_NEXT, "write"));
  static bool is_stalled;
  if (!stalls || (is_stalled = !is_stalled) == false)
    return real(fd, buf, size);
  errno = EIO;
  return 0;
}
