// Assertions that stay on in every build.
//
// An invariant of the analyzer that does not hold means that everything printed from then on would
// be wrong, so the program stops there, in release builds too. The message has the layout of the C
// library's assert(): "korva: vantor/tsanalyze/pat.cpp:57: process_PAT: Assertion `...' failed."
#pragma once

// What a failed assertion is made of; all texts are literals.
struct tassert_failure {
  const char *expr;
  const char *file;
  unsigned line;
  const char *func;
};

// Called first when an assertion fails, if set. It may throw, which lets a test or a fuzzer go on
// behind the failure; when it returns, the message is printed and the process aborts as usual. The
// program itself leaves it null.
using tassert_hook_fn = void (*)(const tassert_failure &);
extern tassert_hook_fn g_tassert_hook;

// Prints the message to standard error and aborts.
[[noreturn]] void tassert_fail(const tassert_failure &failure);

// Asserts `expr`; the message quotes `text`.
#define TASSERT_AS(expr, text)                                                                     \
  do {                                                                                             \
    if (!(expr)) [[unlikely]]                                                                      \
      tassert_fail({text, __FILE__, __LINE__, __func__});                                          \
  } while (0)

// Asserts `expr`; the message quotes it as written.
#define TASSERT(expr) TASSERT_AS(expr, #expr)
