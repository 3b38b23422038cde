// Numbers of the transport stream (ISO/IEC 13818-1, 2.4.3).
#pragma once

enum {
  TS_PKT_SIZE = 188,
  TS_SYNC_BYTE = 0x47,
  TS_PIDS = 8192,

  PID_PAT = 0,
  PID_SDT = 17,
};
