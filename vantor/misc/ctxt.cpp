#include "misc/ctxt.h"

#include <algorithm>
#include <cstdarg>
#include <cstdlib>
#include <cstring>

#include "log/statement.h"
#include "syswrap/syswrap.h"
#include "tassert/tassert.h"

LOG_MODULE(0);

int open_ctxt(ctxt_spec *txt, ssize_t capacity) {
  auto *buf = static_cast<char *>(W_calloc(__func__, static_cast<size_t>(capacity), 1));
  if (!buf)
    return -1;
  *txt = {.buf = buf, .buflen = capacity, .textlen = 0};
  return 0;
}

void close_ctxt(ctxt_spec *txt) {
  free(txt->buf);
  *txt = {};
}

void replace_ctxt(ctxt_spec *dst, ctxt_spec *src) {
  close_ctxt(dst);
  *dst = *src;
  *src = {};
}

// What is left for a line, its terminator included.
static ssize_t room_of(const ctxt_spec *txt) {
  return txt->buflen - txt->textlen - 2;
}

static constexpr ssize_t MIN_ROOM = 16;

bool ctxt_is_full(const ctxt_spec *txt) {
  return room_of(txt) < MIN_ROOM;
}

void add_ctxt_line(void *opaque, const char *format, ...) {
  auto *s = static_cast<ctxt_spec *>(opaque);
  const ssize_t room = room_of(s);
  if (room < MIN_ROOM) {
    LOG(g_log, WARN_level, "%s: PMT buffer may overflow, %zd bytes left\n", __func__, room);
    return;
  }

  va_list args;
  va_start(args, format);
  const ssize_t n = vsnprintf(s->buf + s->textlen, static_cast<size_t>(room), format, args);
  va_end(args);

  // A cut line counts `room` bytes, its terminator among them.
  s->textlen += std::clamp(n, ssize_t{0}, room);
  TASSERT(s->textlen < s->buflen);
  s->buf[s->textlen++] = '\n';
}

int cmp_ctxt(const ctxt_spec *a, const ctxt_spec *b) {
  if (a->textlen != b->textlen)
    return 1;
  if (!a->buf || !b->buf)
    return 0;
  return memcmp(a->buf, b->buf, static_cast<size_t>(a->textlen));
}

void dump_ctxt(FILE *out, const char *title, const ctxt_spec *txt) {
  if (!out || !txt->buf || txt->textlen <= 0)
    return;
  flockfile(out);
  if (title)
    fprintf(out, "%s\n", title);
  fwrite(txt->buf, 1, static_cast<size_t>(txt->textlen), out);
  fflush(out);
  funlockfile(out);
}
