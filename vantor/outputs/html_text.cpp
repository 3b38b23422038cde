#include "outputs/html_text.h"

#include <cinttypes>
#include <cstdarg>
#include <cstdio>

namespace {

constexpr char replacement[] = "\uFFFD";

// Length of the UTF-8 sequence that `s` begins with, 0 when it is none: too long for its value, a
// surrogate, or beyond U+10FFFF.
size_t sequence_length(std::string_view s) {
  const auto at = [&](size_t i) -> unsigned { return static_cast<uint8_t>(s[i]); };
  const unsigned lead = at(0);
  const size_t n = lead < 0x80   ? 1
                   : lead < 0xC2 ? 0
                   : lead < 0xE0 ? 2
                   : lead < 0xF0 ? 3
                   : lead < 0xF5 ? 4
                                 : 0;
  if (n == 0 || n > s.size())
    return 0;
  for (size_t i = 1; i < n; ++i)
    if ((at(i) & 0xC0) != 0x80)
      return 0;
  const bool is_bad = n > 2 && ((lead == 0xE0 && at(1) < 0xA0) || (lead == 0xED && at(1) > 0x9F) ||
                                (lead == 0xF0 && at(1) < 0x90) || (lead == 0xF4 && at(1) > 0x8F));
  return is_bad ? 0 : n;
}

} // namespace

void html_text::put(const char *format, ...) {
  char line[1024];
  va_list args;
  va_start(args, format);
  const int n = vsnprintf(line, sizeof line, format, args);
  va_end(args);
  if (n > 0)
    text.append(line,
                static_cast<size_t>(n) < sizeof line ? static_cast<size_t>(n) : sizeof line - 1);
}

void html_text::put_escaped(std::string_view foreign) {
  while (!foreign.empty()) {
    const size_t n = sequence_length(foreign);
    const char c = foreign[0];
    if (n == 0 || static_cast<uint8_t>(c) < ' ' || c == 0x7F)
      text += replacement;
    else if (c == '&')
      text += "&amp;";
    else if (c == '<')
      text += "&lt;";
    else if (c == '>')
      text += "&gt;";
    else if (c == '"')
      text += "&quot;";
    else if (c == '\'')
      text += "&#39;";
    else
      text.append(foreign.substr(0, n));
    foreign.remove_prefix(n == 0 ? 1 : n);
  }
}

std::string grouped(uint64_t number) {
  std::string out = std::to_string(number);
  for (size_t at = out.size(); at > 3;)
    out.insert(at -= 3, "\u202F");
  return out;
}

std::string size_text(uint64_t bytes) {
  constexpr const char *units[] = {"bytes", "kB", "MB", "GB", "TB"};
  auto value = static_cast<double>(bytes);
  size_t unit = 0;
  for (; value >= 1000 && unit + 1 < std::size(units); ++unit)
    value /= 1000;
  char out[32];
  snprintf(out, sizeof out, unit == 0 ? "%.0f %s" : "%.1f %s", value, units[unit]);
  return out;
}

std::string clock_text(uint64_t ms, bool ms_digits) {
  const uint64_t s = ms / 1000;
  char out[64];
  int n = s < 3600 ? snprintf(out, sizeof out, "%" PRIu64 ":%02" PRIu64, s / 60, s % 60)
                   : snprintf(out, sizeof out, "%" PRIu64 ":%02" PRIu64 ":%02" PRIu64, s / 3600,
                              s / 60 % 60, s % 60);
  if (ms_digits)
    snprintf(out + n, sizeof out - static_cast<size_t>(n), ".%03" PRIu64, ms % 1000);
  return out;
}
