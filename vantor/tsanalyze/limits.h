// Fixed bounds of the analyzer.
#pragma once

#include <cstddef>
#include <cstdint>

#include "mpegts/constants.h"

enum {
  MAX_PMTS = 32,      // programs per source
  MAX_NSTREAMS = 64,  // streams per program
  MAX_PMT_TXT = 4096, // bytes of a PMT's rendering
  MAX_PTAG = 64,      // bytes of a packet tag, terminator included

  D_MAX_NO_ANALYZE = 9000, // max_skipped_pkts, packets
  D_MAX_DELTA_MS = 500,    // max_pdts_delta_ms
  D_PCOUNT = 10000,        // max_ndat_pcount, packets
};
