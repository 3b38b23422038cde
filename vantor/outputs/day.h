// Days of the calendar, UTC.
#pragma once

#include <chrono>
#include <cstdio>

inline std::chrono::sys_days today() {
  return std::chrono::floor<std::chrono::days>(std::chrono::system_clock::now());
}

// YYYY-MM-DD
struct day_text {
  char text[40];
};

inline day_text text_of(std::chrono::year_month_day day) {
  day_text out;
  snprintf(out.text, sizeof out.text, "%04d-%02u-%02u", static_cast<int>(day.year()),
           static_cast<unsigned>(day.month()), static_cast<unsigned>(day.day()));
  return out;
}
