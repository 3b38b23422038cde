// What a stream is, by its stream_type (ISO/IEC 13818-1, table 2-34) and descriptors.
#pragma once

#include <cstdint>
#include <span>

// 'V' video, 'A' audio, 'S' subtitles and teletext, 'D' all else.
char kind_of_stream(uint8_t stream_type, std::span<const uint8_t> descriptors);

// Name of its coding, "" where that is not known.
const char *codec_of_stream(uint8_t stream_type, std::span<const uint8_t> descriptors);

// Calls `visit(tag, data)` for each descriptor of a loop that fits; false when one does not.
template <typename Visit> bool for_each_descriptor(std::span<const uint8_t> loop, Visit visit) {
  while (!loop.empty()) {
    if (loop.size() < 2 || loop.size() - 2 < loop[1])
      return false;
    const size_t length = loop[1];
    visit(loop[0], loop.subspan(2, length));
    loop = loop.subspan(2 + length);
  }
  return true;
}
