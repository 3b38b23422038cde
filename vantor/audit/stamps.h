// Time stamps of PES headers (ISO/IEC 13818-1, 2.4.3.6, 2.7.4) against their program's clock.
#pragma once

#include "audit/clocks.h"
#include "mpegts/packet.h"

// Takes the payload of a packet of a listed video or audio stream in which a PES packet may start.
void take_pes_header(audit_ctx &a, uint16_t pid, pkt_bytes payload);

// The stream announced a discontinuity: its steps start anew.
void restart_steps(audit_ctx &a, uint16_t pid);

// A PCR of this clock came, `step` behind the one before: stamps between the two are judged.
// `is_broken`: it jumped, or was announced to; the stamps are dropped.
void judge_waiting_stamps(audit_ctx &a, clock_record &clock, const pcr_track &before,
                          const pcr_step &step, bool is_broken);
