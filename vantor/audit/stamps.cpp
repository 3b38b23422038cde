#include "audit/stamps.h"

#include <algorithm>

namespace {

struct stamps {
  bool are_there = false;
  int64_t pts = 0, dts = 0; // 90 kHz; DTS is PTS where there is none
};

// Streams whose packets have no header to bear stamps (table 2-21).
bool bears_stamps(uint8_t stream_id) {
  constexpr uint8_t bare[] = {0xBC, 0xBE, 0xBF, 0xF0, 0xF1, 0xF2, 0xF8, 0xFF};
  return stream_id >= 0xBC && std::ranges::find(bare, stream_id) == std::end(bare);
}

stamps read_stamps(pkt_bytes pes) {
  enum : size_t { HEADER_LENGTH_AT = 8 };
  if (!is_pes_pkt(pes) || !bears_stamps(pes[3]) || !pes_has_PTS(pes))
    return {};
  const bool has_dts = (pes[7] & 0xC0) == 0xC0;
  const size_t stamps_size = PES_STAMP_SIZE * (has_dts ? 2 : 1);
  if (pes.size() < PES_PTS_AT + stamps_size || pes[HEADER_LENGTH_AT] < stamps_size)
    return {};
  const auto pts = static_cast<int64_t>(pes_get_PTS(pes));
  return {true, pts, has_dts ? static_cast<int64_t>(pes_get_DTS(pes)) : pts};
}

} // namespace

void take_pes_header(audit_ctx &a, uint16_t pid, pkt_bytes payload, bool) {
  const stamps s = read_stamps(payload);
  if (!s.are_there)
    return;
  clock_dts(a.clock, a.records[pid].dts, a.packet, s.dts);
}
