#include "outputs/run_info.h"

#include "mpegts/constants.h"

uint64_t packet_offset(const run_request &request, uint64_t pkt_idx) {
  return (request.first_packet - 1 + pkt_idx - 1) * TS_PKT_SIZE;
}

bool is_unreadable(run_end end) {
  return end == run_end::cannot_open || end == run_end::read_failed;
}

const char *run_end_name(run_end end) {
  constexpr const char *names[] = {"complete", "limit",       "signal",     "stopped",
                                   "failed",   "cannot-open", "read-failed"};
  return names[static_cast<size_t>(end)];
}
