// Text on its way to a file, through a buffer of fixed size: nothing is allocated, so that nothing
// can be refused.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "outputs/output_file.h"

class text_out {
public:
  explicit text_out(output_file &target) : file(target) {}
  text_out(const text_out &) = delete;
  text_out &operator=(const text_out &) = delete;
  ~text_out() { flush(); }

  void put(std::string_view text);

  // At most MAX_FORMATTED characters; the rest is cut off.
  [[gnu::format(printf, 2, 3)]] void format(const char *format, ...);

  // Hands everything to the file.
  void flush();

private:
  enum : size_t { MAX_FORMATTED = 1024, CAPACITY = 16 * MAX_FORMATTED };

  output_file &file;
  size_t used = 0;
  char buf[CAPACITY];
};

// Length of the UTF-8 sequence that `s` begins with, 0 when it is none: too long for its value, a
// surrogate, or beyond U+10FFFF. `s` is not empty.
size_t utf8_length(std::string_view s);

// U+FFFD, in place of what is no UTF-8.
inline constexpr std::string_view utf8_replacement = "\uFFFD";

// A short text made for one place in another.
struct short_text {
  char text[64];
};

// "1 234 567", with blanks at which no line breaks.
short_text grouped(uint64_t number);

// "1.4 GB"
short_text size_text(uint64_t bytes);

// "1:02:03" or "2:03", with milliseconds when `ms_digits`.
short_text clock_text(uint64_t ms, bool ms_digits);
