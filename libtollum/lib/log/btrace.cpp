#include "log/btrace.h"

#include <execinfo.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <iterator>

#include "syswrap/syswrap.h"

int btrace_to_buf(char *buf, size_t size) {
  void *frames[16];
  errno = 0;
  const int count = backtrace(frames, std::ssize(frames));
  if (count < 1) {
    if (errno != 0)
      perror("backtrace");
    return -1;
  }
  const calloc_ptr<char *> symbols{backtrace_symbols(frames, count)};
  if (symbols == nullptr) {
    perror("backtrace_symbols");
    return -1;
  }
  for (int i = 0; i < count; ++i) {
    const int n = snprintf(buf, size, "#%d: %s\n", i, symbols.get()[i]);
    if (n < 0 || static_cast<size_t>(n) >= size)
      break;
    buf += n;
    size -= static_cast<size_t>(n);
  }
  return 0;
}

int snprintf_btrace(char *buf, size_t size, const char *format, ...) {
  if (format == nullptr)
    return btrace_to_buf(buf, size);
  va_list args;
  va_start(args, format);
  const int n = vsnprintf(buf, size, format, args);
  va_end(args);
  if (n < 1 || static_cast<size_t>(n) >= size)
    return -1;
  return btrace_to_buf(buf + n, size - static_cast<size_t>(n));
}
