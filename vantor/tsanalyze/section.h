// PSI sections (ISO/IEC 13818-1, 2.4.4): the one door through which bytes of a packet reach the PSI
// library.
//
// The library trusts the lengths inside a section. So a section is copied out of its packet into a
// zero-filled buffer that is larger than anything the library can be led to read, and what does not
// fit its container is cut there. A section that is well formed and fits its packet comes through
// unchanged.
#pragma once

#include <cstdint>

#include "mpegts/packet.h"
#include "tsanalyze/records.h"

struct psi_section {
  size_t avail;       // bytes that the packet holds of it, 0 = the packet holds none
  uint8_t data[1024]; // those bytes, then zeros
};

// Copies the section that starts in a packet: at its payload, less one byte (the pointer field,
// whose value is not used) when the packet has payload_unit_start_indicator set.
void take_section(ts_pkt pkt, psi_section *sec);

// Make a PAT or PMT section safe to walk; false when too little of it is there, or when it could
// never belong to a complete table.
bool guard_pat(psi_section *sec);
bool guard_pmt(psi_section *sec);

// Remember a section, and know it again: is it the same, byte for byte?
void remember_section(seen_section *seen, const psi_section *sec);
bool is_seen_section(const seen_section *seen, const psi_section *sec);

// Private copy of a guarded PAT section, in the layout that the library's tables hold, or null
// (reported). It is the section without its last three bytes (of the CRC), which read as zeros.
uint8_t *dup_psi_sec(const psi_section *sec);

// Start and release a table. A released one can be used again.
void psi_block_init(psi_block *psi);
void psi_block_free(psi_block *psi);

// Stores a PAT section in a table and returns true once the table is complete. A section that
// guard_pat() refuses is not stored.
bool psi_block_add(psi_block *psi, psi_section *sec);
