// The help text.
#pragma once

// Prints it to standard error, with `prog` as the program's name, and exits with `status`.
[[noreturn]] void usage(const char *prog, int status);
