// Bounded text buffer that takes a rendering line by line.
#pragma once

#include <sys/types.h>

#include <cstdio>

struct ctxt_spec {
  char *buf;       // owned; null when closed
  ssize_t buflen;  // bytes
  ssize_t textlen; // bytes of text held; each line ends in '\n', no terminator
};

// Allocates `capacity` bytes, zero-filled. Returns 0, or -1 (reported) and leaves `txt` alone.
int open_ctxt(ctxt_spec *txt, ssize_t capacity);

// Releases the buffer, if any.
void close_ctxt(ctxt_spec *txt);

// Closes `dst` and moves the buffer of `src` into it; `src` is closed then.
void replace_ctxt(ctxt_spec *dst, ctxt_spec *src);

// Appends one line to the ctxt_spec behind `opaque`. A line that does not fit is cut; once the
// buffer is all but full, further lines are dropped with a warning.
[[gnu::format(printf, 2, 3)]] void add_ctxt_line(void *opaque, const char *format, ...);

// True when the buffer is closed or has no room for another line.
bool ctxt_is_full(const ctxt_spec *txt);

// 0 when both hold the same text, or when either is closed.
int cmp_ctxt(const ctxt_spec *a, const ctxt_spec *b);

// Writes the title, if any, and the text to `out`; nothing for an empty or closed buffer.
void dump_ctxt(FILE *out, const char *title, const ctxt_spec *txt);
