// Time stamps of PES headers (ISO/IEC 13818-1, 2.4.3.6, 2.7.4).
#pragma once

#include "audit/ctx.h"
#include "mpegts/packet.h"

// Takes the payload of a packet of a listed video or audio stream in which a PES packet may start.
void take_pes_header(audit_ctx &a, uint16_t pid, pkt_bytes payload, bool is_announced);
