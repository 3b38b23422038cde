// The last whole PAT and PMTs of a stream (ISO/IEC 13818-1, 2.4.4): where their packets stand.
#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <map>
#include <vector>

#include "mpegts/packet.h"

class table_packets {
public:
  // Takes a packet, and the offset of its record in the file. Throws when memory is refused.
  void packet(ts_pkt pkt, uint64_t offset);

  // Offsets of the records that hold them, rising.
  std::vector<uint64_t> offsets() const;

private:
  // A section that is not whole yet.
  struct open_section {
    std::vector<uint8_t> bytes;
    std::vector<uint64_t> offsets;
    bool is_open = false;
    uint32_t cc = 16; // of the last packet, 16: none
  };
  struct key {
    uint32_t pid;
    uint16_t extension; // table_id_extension: of a PMT its program_number
    uint8_t number;
    auto operator<=>(const key &) const = default;
  };

  void feed(uint32_t pid, open_section &open, pkt_bytes &bytes, uint64_t offset);
  void take(uint32_t pid, const open_section &section);
  void take_pat(const std::vector<uint8_t> &pat);

  std::map<uint32_t, open_section> open_on; // by PID: of the PAT and of listed PMTs
  std::map<key, std::vector<uint64_t>> whole;
  std::map<uint16_t, uint32_t> pmt_of; // PID by program_number
  int pat_version = -1;
};
