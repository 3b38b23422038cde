// The help texts.
#pragma once

// Prints it to standard error, with `prog` as the program's name, and exits with `status`.
[[noreturn]] void usage(const char *prog, int status);

// Prints all options to standard output and exits with 0, or with 2 when they cannot be written.
[[noreturn]] void show_help(const char *prog);
