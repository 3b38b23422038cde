// Findings of an audit as lines of the logs.
#pragma once

#include <string>
#include <string_view>

#include "outputs/audit_facts.h"

// `allowed`: the entry of the baseline that allows it, or null.

// For people, as "AUDIT CC-LOSS [tag] 00:00:06.058 PID 256 (0x0100) program 1: 7 packets lost at
// packet 12162".
std::string human_line(const audit_finding &finding, std::string_view tag,
                       const allowed_finding *allowed = nullptr);

// For programs: kind, tag, PID, packet, offset, time, and the rest as key=value; "-" is none.
std::string terse_line(const audit_finding &finding, std::string_view tag,
                       const allowed_finding *allowed = nullptr);

// What happened, without where: "7 packets lost".
std::string what_happened(const audit_finding &finding);

// How it went: "PASS (2 of 19 not measurable), 3 findings allowed".
std::string verdict_line(const audit_facts &facts);
