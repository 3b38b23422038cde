// What the tables of a capture look like from outside: whether PAT and PMTs came, and what they
// list. It tells why nothing could be checked, and which program_number a PMT has.
#pragma once

#include <array>
#include <bitset>
#include <cstdint>

#include "mpegts/packet.h"

// A PMT that the PAT lists.
struct listed_pmt {
  uint16_t pid = 0, program_number = 0;
  uint64_t packets = 0, scrambled = 0;
  uint64_t tables = 0;    // begun, of table_id 2
  uint64_t pointed = 0;   // of them behind other bytes, by a pointer_field that is not 0
  std::bitset<256> types; // stream_types that they list
  uint64_t digest = 0;    // of the last packet that began one
};

class survey {
public:
  // Takes a packet. Returns true when its table says something new.
  bool packet(ts_pkt pkt);

  // The PMT that the PAT lists on a PID, or null.
  const listed_pmt *pmt_on(uint32_t pid) const;

  uint64_t packets = 0, pat_packets = 0, pat_scrambled = 0, pats = 0;

private:
  enum : size_t { MAX_PMTS = 64, NONE = 0xFF };

  bool pat(ts_pkt pkt);
  bool pmt(ts_pkt pkt, listed_pmt &listed);
  void list(uint16_t pid, uint16_t program_number);

  std::array<uint8_t, 8192> slot_of = all_none();
  std::array<listed_pmt, MAX_PMTS> slots;
  size_t used = 0;
  uint64_t pat_digest = 0;

  static constexpr std::array<uint8_t, 8192> all_none() {
    std::array<uint8_t, 8192> none = {};
    none.fill(NONE);
    return none;
  }
};
