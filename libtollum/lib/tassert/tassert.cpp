#include "tassert/tassert.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>

tassert_hook_fn g_tassert_hook;

void tassert_fail(const tassert_failure &failure) {
  if (g_tassert_hook != nullptr)
    g_tassert_hook(failure);
  fflush(stdout); // abort() would drop what waits there
  fprintf(stderr, "%s: %s:%u: %s: Assertion `%s' failed.\n", program_invocation_short_name,
          failure.file, failure.line, failure.func, failure.expr);
  fflush(stderr);
  abort();
}
