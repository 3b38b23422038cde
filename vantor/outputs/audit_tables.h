// What an audit says at its end, as tables for a terminal.
#pragma once

#include <string>

#include "outputs/audit_facts.h"

// Indicators, findings that have none, PIDs, and the verdict; only that when no packet was judged,
// `audit` being null then.
std::string audit_tables(audit_t audit, const audit_facts &facts);
