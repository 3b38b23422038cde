#include "syswrap/syswrap.h"

#include <getopt.h>

#include <cerrno>
#include <cstring>

#include "log/statement.h"

LOG_MODULE(2);

void *W_calloc(const char *caller, size_t count, size_t size) {
  void *ptr = calloc(count, size);
  if (ptr == nullptr) {
    const int error = errno;
    LOG(g_log, ERR_level, "%s: calloc(%ld, %ld) ERROR(%d): %s\n", caller, static_cast<long>(count),
        static_cast<long>(size), error, strerror(error));
    errno = error;
  }
  return ptr;
}

void reset_getopt_state() {
  optind = 0;
}
