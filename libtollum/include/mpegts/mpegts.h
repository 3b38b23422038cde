// Arithmetic on the 33-bit, 90 kHz clock of ISO/IEC 13818-1 (PCR base, PTS, DTS).
#pragma once

#include <cstdint>

enum : uint64_t {
  PCR_WRAP = 0x200000000, // values of the 33-bit counter
  PCR_MAX_GAP = 45000,    // half a second, in ticks
};

// Ticks from `first` to `last`. A `last` less than half a second past the wrap of the counter is
// taken as such. A clock that otherwise runs backwards is reported as a warning and gives 0, unless
// `first` is 0. It is not reported when `quiet`.
uint64_t calc_pcr_delta(uint64_t first, uint64_t last, bool quiet);

// The same in whole milliseconds, the low 32 bits of them.
uint32_t pcr_delta_ms(uint64_t first, uint64_t last);

// PCR base of a packet whose adaptation field carries one (2.4.3.5); bytes 6 to 10 are read.
inline uint64_t ts_get_pcr_base(const uint8_t *pkt) {
  return uint64_t{pkt[6]} << 25 | uint64_t{pkt[7]} << 17 | uint64_t{pkt[8]} << 9 |
         uint64_t{pkt[9]} << 1 | uint64_t{pkt[10]} >> 7;
}
