// Text of an HTML page under construction.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

struct html_text {
  std::string text;

  // Markup of our own, formatted; no argument may hold text of the user or of the stream.
  [[gnu::format(printf, 2, 3)]] void put(const char *format, ...);

  // Foreign text: escaped, and what is no UTF-8 or no character that a page may have reads as
  // U+FFFD.
  void put_escaped(std::string_view foreign);
};

// "1 234 567", with blanks at which no line breaks.
std::string grouped(uint64_t number);

// "1.4 GB"
std::string size_text(uint64_t bytes);

// "1:02:03" or "2:03", with milliseconds when `ms_digits`.
std::string clock_text(uint64_t ms, bool ms_digits);
