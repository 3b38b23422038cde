#include "outputs/audit_words.h"

#include <cinttypes>
#include <cmath>
#include <cstdarg>
#include <cstdio>

#include "audit/clock.h"

std::string text(const char *format, ...) {
  char buf[256];
  va_list args;
  va_start(args, format);
  vsnprintf(buf, sizeof buf, format, args);
  va_end(args);
  return buf;
}

std::string counted(uint64_t count, std::string_view thing) {
  return std::to_string(count) + " " + std::string(thing) + (count == 1 ? "" : "s");
}

std::string clock_time(double seconds, int hour_digits, const char *unknown) {
  if (!std::isfinite(seconds))
    return unknown;
  const auto ms = static_cast<int64_t>(nearest(seconds * 1000));
  return text("%0*" PRId64 ":%02d:%02d.%03d", hour_digits, ms / 3'600'000,
              static_cast<int>(ms / 60'000 % 60), static_cast<int>(ms / 1000 % 60),
              static_cast<int>(ms % 1000));
}

std::string allowed_text(const allowed_finding &entry) {
  return std::string("allowed until ") + text_of(entry.until).text + ": " + entry.reason;
}

std::string in_units(double value, const char *unit) {
  std::string number = text("%.3f", std::fabs(value));
  number.erase(number.find_last_not_of('0') + 1);
  if (number.back() == '.')
    number.pop_back();
  return number + " " + unit;
}
