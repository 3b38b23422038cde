// PAT, PMT and CAT (ISO/IEC 13818-1, 2.4.4): what they list, and what changed.
#pragma once

#include <span>

#include "audit/ctx.h"

using section_bytes = std::span<const uint8_t>;

// Take a whole section with a right CRC_32 that is in force (current_next_indicator 1).
void take_pat(audit_ctx &a, section_bytes section);
void take_pmt(audit_ctx &a, uint16_t pid, section_bytes section);
void take_cat(audit_ctx &a, section_bytes section);

// The section that was held last for the place of this one, empty if none.
section_bytes held_section(const audit_ctx &a, uint16_t pid, section_bytes section);

// PID on which a table other than a PMT comes.
int32_t table_pid(const audit_ctx &a, audit_table table);

// The program that has a PMT with this program_number on this PID, NO_PROGRAM if none.
uint32_t program_on(const audit_ctx &a, uint16_t pid, uint16_t number);

// Begins to watch the tables that the profile wants, and to read the PIDs that are always read.
void start_tables(audit_ctx &a);
