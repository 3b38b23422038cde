// Which PID is listed by which program, and what that makes of the PID.
#pragma once

#include "audit/ctx.h"

// What one PMT says of one PID. The roles of a PID in one program are one listing.
struct pid_roles {
  bool is_stream = false, is_pcr = false, is_pmt = false, is_protected = false;
  char kind = 0;
  uint8_t stream_type = 0;
};

// Adds roles of a PID in a program; a stream that is already listed there keeps its kind.
// refresh_pid() has to follow.
void list_pid(audit_ctx &a, uint32_t program, uint16_t pid, const pid_roles &roles);

// Takes from a program all listings but that of its PMT PID, or that too, and appends the PIDs to
// `pids`. refresh_pid() has to follow for each.
void unlist_program(audit_ctx &a, uint32_t program, bool with_pmt, std::vector<uint16_t> &pids);

// Draws the consequences of what lists the PID now: role, flags, what must recur.
void refresh_pid(audit_ctx &a, uint16_t pid);

// Some table names the PID.
void mark_listed(audit_ctx &a, uint16_t pid);

// The one program that lists a PID, by its program_number; -1: none, or several.
int32_t sole_program(const audit_ctx &a, int32_t pid);

// PCR_PID of the program that lists a stream, of several the first in the PAT; -1 for none.
int32_t clock_of(const audit_ctx &a, uint16_t pid);
