#include "outputs/json_text.h"

#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <cstdlib>

void json_text::put_key(const char *key) {
  if (needs_comma)
    out.put(",");
  needs_comma = true;
  if (key)
    out.format("\"%s\":", key);
}

void json_text::field(const char *key, std::string_view value) {
  put_key(key);
  out.put("\"");
  while (!value.empty()) {
    const size_t n = utf8_length(value);
    const auto c = static_cast<uint8_t>(value[0]);
    if (n == 0)
      out.put(utf8_replacement);
    else if (c == '"' || c == '\\')
      out.format("\\%c", c);
    else if (c < ' ' || c == 0x7F)
      out.format("\\u%04x", c);
    else
      out.put(value.substr(0, n));
    value.remove_prefix(n == 0 ? 1 : n);
  }
  out.put("\"");
}

void json_text::field(const char *key, bool value) {
  put_key(key);
  out.put(value ? "true" : "false");
}

// With as few digits as tell the value.
void json_text::field(const char *key, double value) {
  char text[32];
  for (int digits = 15; digits <= 17; ++digits) {
    snprintf(text, sizeof text, "%.*g", digits, value);
    if (strtod(text, nullptr) == value)
      break;
  }
  put_key(key);
  out.put(text);
}

void json_text::put_signed(const char *key, int64_t value) {
  put_key(key);
  out.format("%" PRId64, value);
}

void json_text::put_unsigned(const char *key, uint64_t value) {
  put_key(key);
  out.format("%" PRIu64, value);
}

void json_text::null(const char *key) {
  put_key(key);
  out.put("null");
}

void json_text::seconds(const char *key, double value) {
  if (std::isnan(value))
    return null(key);
  put_key(key);
  out.format("%.6f", value);
}

void json_text::item(uint64_t value) {
  put_unsigned(nullptr, value);
}

void json_text::begin(const char *key, const char *bracket) {
  put_key(key);
  out.put(bracket);
  needs_comma = false;
}

void json_text::end(const char *bracket) {
  out.put(bracket);
  needs_comma = true;
}
