// Kinds of findings that no indicator of ETSI TR 101 290 counts.
#pragma once

#include "audit/audit.h"

struct kind_without_indicator {
  audit_kind kind;
  const char *meaning;
};

inline constexpr kind_without_indicator kinds_without_indicator[] = {
    {AUDIT_PSI_SYNTAX, "sections that cannot be"},
    {AUDIT_PSI_VERSION, "content of a table changed, its version_number did not"},
    {AUDIT_STAMP_LATE, "data arrives after its decoding time"},
    {AUDIT_STAMP_DELAY, "data waits too long for its decoding time"},
    {AUDIT_STAMP_BASE, "time stamps of another time base than the PCR"},
    {AUDIT_STAMP_ORDER, "PTS before DTS"},
    {AUDIT_STAMP_BACK, "decoding times go back"},
    {AUDIT_STAMP_JUMP, "distance of time stamps to the PCR jumps"},
    {AUDIT_SCRAMBLED, "scrambled without a CA descriptor"},
    {AUDIT_RATE_LOSS, "packets missing by the constant rate, beside those that counters show"},
    {AUDIT_AFC_RESERVED, "adaptation_field_control 00"},
    {AUDIT_AF_SYNTAX, "adaptation fields that do not fit"},
    {AUDIT_LEADING, "bytes before the first packet"},
    {AUDIT_PAT_CHANGE, "announced changes of the PAT"},
    {AUDIT_PMT_CHANGE, "announced changes of PMTs"},
    {AUDIT_PID_ABSENT, "announced streams without a packet, neither video nor audio"},
};
