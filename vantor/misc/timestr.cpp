#include "misc/timestr.h"

#include <sys/types.h>

#include <cstdio>

#include "tassert/tassert.h"

void ms2timestr(uint64_t ms, char *buf, size_t slen) {
  const ssize_t n = snprintf(buf, slen - 1, "%02zu:%02zu:%02zu.%03zu", ms / 3600000,
                             ms % 3600000 / 60000, ms % 60000 / 1000, ms % 1000);
  TASSERT(n < (ssize_t)slen);
}
