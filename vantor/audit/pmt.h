// Layout of a PMT section (ISO/IEC 13818-1, 2.4.4.9).
#pragma once

#include <cstdint>
#include <span>

#include "audit/kinds.h"

// Views of a section that is kept elsewhere.
struct pmt_stream {
  uint8_t type;
  uint16_t pid;
  std::span<const uint8_t> descriptors;
};

inline uint16_t pid_at(std::span<const uint8_t> bytes, size_t at) {
  return static_cast<uint16_t>((bytes[at] & 0x1F) << 8 | bytes[at + 1]);
}

inline uint16_t word_at(std::span<const uint8_t> bytes, size_t at) {
  return static_cast<uint16_t>(bytes[at] << 8 | bytes[at + 1]);
}

inline size_t loop_length_at(std::span<const uint8_t> bytes, size_t at) {
  return word_at(bytes, at) & 0x0FFFu;
}

enum : size_t { PMT_CONTENT_AT = 8, PMT_LOOP_AT = 12, PMT_ENTRY = 5, CRC_SIZE = 4 };

// What a PMT says: from PCR_PID to before the CRC.
inline std::span<const uint8_t> pmt_content(std::span<const uint8_t> section) {
  return section.subspan(PMT_CONTENT_AT, section.size() - PMT_CONTENT_AT - CRC_SIZE);
}

inline uint16_t pmt_pcr_pid(std::span<const uint8_t> section) {
  return pid_at(section, PMT_CONTENT_AT);
}

// Both only of a section that pmt_fits() has seen.
inline std::span<const uint8_t> pmt_descriptors(std::span<const uint8_t> section) {
  return section.subspan(PMT_LOOP_AT, loop_length_at(section, PMT_LOOP_AT - 2));
}

// Calls `visit(pmt_stream)` for each entry that fits; false when one, or its descriptors, do not.
template <typename Visit> bool for_each_stream(std::span<const uint8_t> section, Visit visit) {
  auto rest = section.subspan(PMT_LOOP_AT + pmt_descriptors(section).size());
  rest = rest.first(rest.size() - CRC_SIZE);
  while (!rest.empty()) {
    if (rest.size() < PMT_ENTRY || rest.size() - PMT_ENTRY < loop_length_at(rest, 3))
      return false;
    const pmt_stream stream = {rest[0], pid_at(rest, 1),
                               rest.subspan(PMT_ENTRY, loop_length_at(rest, 3))};
    visit(stream);
    rest = rest.subspan(PMT_ENTRY + stream.descriptors.size());
  }
  return true;
}

// All loops and descriptors of a whole section fit.
inline bool pmt_fits(std::span<const uint8_t> section) {
  constexpr auto ignore = [](uint8_t, std::span<const uint8_t>) {};
  if (section.size() < PMT_LOOP_AT + CRC_SIZE ||
      section.size() - PMT_LOOP_AT - CRC_SIZE < loop_length_at(section, PMT_LOOP_AT - 2) ||
      !for_each_descriptor(pmt_descriptors(section), ignore))
    return false;
  bool fit = true;
  return for_each_stream(section,
                         [&](const pmt_stream &s) {
                           fit = fit && for_each_descriptor(s.descriptors, ignore);
                         }) &&
         fit;
}
