// Continuity counters (ISO/IEC 13818-1, 2.4.3.3): losses, duplicates, packets out of order.
#pragma once

#include "audit/ctx.h"
#include "mpegts/packet.h"

// Of one packet, what its counter is judged by.
struct counted_packet {
  uint32_t pid = 0;
  uint64_t previous = 0; // number of the PID's packet before it, 0: none
  uint8_t cc = 0;
  bool is_announced = false;               // discontinuity_indicator
  bool has_payload = false;                // by its adaptation_field_control
  uint32_t sample = 0;                     // bytes 1 to 3 and length of the payload
  uint64_t head_bytes = 0, tail_bytes = 0; // the payload's first and last 8 bytes
};

// Takes a packet whose counter is the one expected.
inline void take_counter(pid_state &p, const counted_packet &pkt) {
  p.next_cc = static_cast<uint8_t>(pkt.cc + 1);
  p.duplicates = 0;
  p.tei_skipped = 0;
  p.sample = pkt.sample;
  p.head_bytes = pkt.head_bytes;
  p.tail_bytes = pkt.tail_bytes;
}

// Judges a packet that has a predecessor; false when it is a repetition, of which nothing else is
// to be read.
bool judge_counter(audit_ctx &a, const counted_packet &pkt);

// A packet that was marked damaged: its counter cannot be trusted, but explains a gap of one.
void skip_counter(audit_ctx &a, uint32_t pid);

// What is held at the end was lost.
void release_held_losses(audit_ctx &a);
