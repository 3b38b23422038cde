#include "outputs/terminal.h"

#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <string_view>

#include "outputs/text_out.h"

namespace {

// A terminal's descriptor; text for it is collected here, and goes there when this is full.
struct terminal {
  explicit terminal(int descriptor) : fd(descriptor) {}

  int fd;
  size_t used = 0;
  bool is_ok = true;
  char buffer[1024] = {};

  void flush() {
    for (size_t at = 0; at < used && is_ok;) {
      const ssize_t n = write(fd, buffer + at, used - at);
      if (n > 0)
        at += static_cast<size_t>(n);
      else
        is_ok = errno == EINTR;
    }
    used = 0;
  }
  void put(std::string_view text) {
    if (used + text.size() > sizeof buffer)
      flush();
    used += text.copy(buffer + used, text.size());
  }
};

// Of a character, as UTF-8: the controls are those of ASCII and U+0080 to U+009F.
bool is_control(std::string_view character) {
  const auto first = static_cast<uint8_t>(character[0]);
  if (first == 0xC2)
    return static_cast<uint8_t>(character[1]) < 0xA0;
  return (first < ' ' && first != '\n' && first != '\t') || first == 0x7F;
}

ssize_t write_shown(void *cookie, const char *text, size_t size) {
  terminal &to = *static_cast<terminal *>(cookie);
  to.is_ok = true;
  for (std::string_view rest(text, size); !rest.empty();) {
    const size_t n = utf8_length(rest);
    if (n != 0 && !is_control(rest.substr(0, n))) {
      to.put(rest.substr(0, n));
      rest.remove_prefix(n);
      continue;
    }
    for (size_t i = 0; i < (n == 0 ? 1 : n); ++i) {
      char hex[8];
      snprintf(hex, sizeof hex, "\\x%02x", static_cast<uint8_t>(rest[i]));
      to.put(hex);
    }
    rest.remove_prefix(n == 0 ? 1 : n);
  }
  to.flush();
  return to.is_ok ? static_cast<ssize_t>(size) : -1;
}

void replace(FILE *&stream, terminal &to) {
  if (!isatty(to.fd))
    return;
  FILE *shown = fopencookie(
      &to, "w", {.read = nullptr, .write = write_shown, .seek = nullptr, .close = nullptr});
  if (!shown)
    return;
  setvbuf(shown, nullptr, _IOLBF, 0);
  stream = shown;
}

terminal out(STDOUT_FILENO), err(STDERR_FILENO);

} // namespace

void show_control_bytes() {
  replace(stdout, out);
  replace(stderr, err);
}
