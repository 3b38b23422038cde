// Continuity counters (ISO/IEC 13818-1, 2.4.3.3): losses, duplicates, packets out of order.
#pragma once

#include "audit/ctx.h"

// Of one packet, what its counter is judged by.
struct counted_packet {
  uint32_t pid = 0;
  uint64_t previous = 0; // number of the PID's packet before it, 0: none
  uint8_t cc = 0;
  bool is_announced = false; // discontinuity_indicator
  bool has_payload = false;  // by its adaptation_field_control
};

// Takes a packet whose counter is the one expected.
inline void take_counter(const audit_ctx &a, pid_state &p, uint8_t cc) {
  p.counted = a.packet;
  p.next_cc = static_cast<uint8_t>(cc + 1);
  p.duplicates = 0;
  p.tei_skipped = 0;
}

// Of the packets of a run only the last one of each PID can be repeated behind it: keeps what it is
// known by, so that of all others nothing but the header need be looked at.
void end_run(audit_ctx &a);

// Judges a packet that has a predecessor; false when it is a repetition, of which nothing else is
// to be read.
bool judge_counter(audit_ctx &a, const counted_packet &pkt);

// A packet that was marked damaged: its counter cannot be trusted, but explains a gap of one.
void skip_counter(audit_ctx &a, uint32_t pid);

// What is held at the end was lost.
void release_held_losses(audit_ctx &a);
