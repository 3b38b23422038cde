// Fixed bounds of the analyzer and of the transport stream (ISO/IEC 13818-1, 2.4.3).
#pragma once

#include <cstddef>
#include <cstdint>

enum {
  TS_PKT_SIZE = 188,
  TS_SYNC_BYTE = 0x47,
  TS_PIDS = 8192,

  PID_PAT = 0,
  PID_SDT = 17,
};

enum {
  MAX_PMTS = 32,      // programs per source
  MAX_NSTREAMS = 64,  // streams per program
  MAX_PMT_TXT = 4096, // bytes of a PMT's rendering
  MAX_PTAG = 64,      // bytes of a packet tag, terminator included

  D_MAX_NO_ANALYZE = 9000, // max_skipped_pkts, packets
  D_MAX_DELTA_MS = 500,    // max_pdts_delta_ms
  D_PCOUNT = 10000,        // max_ndat_pcount, packets
};
