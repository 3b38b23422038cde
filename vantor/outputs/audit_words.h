// Numbers of an audit as people read them.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "outputs/baseline.h"

// As printf; at most 255 characters.
[[gnu::format(printf, 1, 2)]] std::string text(const char *format, ...);

// "1 packet", "2 packets"
std::string counted(uint64_t count, std::string_view thing);

// "01:02:03.456"; hours have at least so many digits. `unknown` stands for NAN.
std::string clock_time(double seconds, int hour_digits, const char *unknown);

// "allowed until 2026-12-31: reason"
std::string allowed_text(const allowed_finding &entry);

// The size of a value, "812.5 ms".
std::string in_units(double value, const char *unit);
