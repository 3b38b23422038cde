// Sections of tables (ISO/IEC 13818-1, 2.4.4; EN 300 468, 5.1), gathered over packets.
#pragma once

#include "audit/ctx.h"
#include "mpegts/packet.h"

// Takes a packet of a PID that carries tables. `follows`: its continuity counter and
// discontinuity_indicator say that nothing is missing before it.
void take_psi_packet(audit_ctx &a, uint16_t pid, pkt_bytes payload, bool is_unit_start,
                     bool follows);

// The same for one whose payload is scrambled.
void take_scrambled_psi_packet(audit_ctx &a, uint16_t pid);
