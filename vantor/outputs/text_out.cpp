#include "outputs/text_out.h"

#include <algorithm>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <iterator>

void text_out::flush() {
  if (used != 0)
    file.write({buf, used});
  used = 0;
}

void text_out::put(std::string_view text) {
  while (!text.empty()) {
    if (used == CAPACITY)
      flush();
    const size_t n = std::min(text.size(), CAPACITY - used);
    memcpy(buf + used, text.data(), n);
    used += n;
    text.remove_prefix(n);
  }
}

void text_out::format(const char *format, ...) {
  if (CAPACITY - used < MAX_FORMATTED)
    flush();
  va_list args;
  va_start(args, format);
  const int n = vsnprintf(buf + used, MAX_FORMATTED, format, args);
  va_end(args);
  used += std::min(static_cast<size_t>(std::max(n, 0)), MAX_FORMATTED - 1);
}

size_t utf8_length(std::string_view s) {
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

short_text grouped(uint64_t number) {
  char digits[24];
  const int n = snprintf(digits, sizeof digits, "%" PRIu64, number);
  short_text out = {};
  char *to = out.text;
  for (int i = 0; i < n; ++i) {
    if (i != 0 && (n - i) % 3 == 0)
      to = stpcpy(to, "\u202F");
    *to++ = digits[i];
  }
  return out;
}

short_text size_text(uint64_t bytes) {
  constexpr const char *units[] = {"bytes", "kB", "MB", "GB", "TB"};
  auto value = static_cast<double>(bytes);
  size_t unit = 0;
  for (; value >= 1000 && unit + 1 < std::size(units); ++unit)
    value /= 1000;
  short_text out;
  snprintf(out.text, sizeof out.text, unit == 0 ? "%.0f %s" : "%.1f %s", value, units[unit]);
  return out;
}

short_text clock_text(uint64_t ms, bool ms_digits) {
  const uint64_t s = ms / 1000;
  short_text out;
  constexpr size_t size = sizeof out.text;
  const int n = s < 3600 ? snprintf(out.text, size, "%" PRIu64 ":%02" PRIu64, s / 60, s % 60)
                         : snprintf(out.text, size, "%" PRIu64 ":%02" PRIu64 ":%02" PRIu64,
                                    s / 3600, s / 60 % 60, s % 60);
  if (ms_digits)
    snprintf(out.text + n, size - static_cast<size_t>(n), ".%03" PRIu64, ms % 1000);
  return out;
}
