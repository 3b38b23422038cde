#include "audit/kinds.h"

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace {

constexpr uint8_t video_types[] = {0x01, 0x02, 0x10, 0x1B, 0x1E, 0x1F, 0x20, 0x21, 0x24, 0x25, 0x26,
                                   0x28, 0x29, 0x2A, 0x2B, 0x33, 0x34, 0x35, 0x42, 0xD1, 0xEA};
// 0x81 and 0x87 are AC-3 and E-AC-3 (ATSC A/53).
constexpr uint8_t audio_types[] = {0x03, 0x04, 0x0F, 0x11, 0x1C, 0x2D, 0x2E, 0x81, 0x87};

constexpr std::string_view video_formats[] = {"HEVC", "VVC ", "AV01"};
constexpr std::string_view audio_formats[] = {"AC-3", "EAC3", "DTS1", "DTS2",
                                              "DTS3", "Opus", "BSSD", "AC-4"};

// Descriptors of EN 300 468 and their extensions (descriptor 0x7F).
constexpr uint8_t audio_tags[] = {0x6A, 0x7A, 0x7B, 0x7C};       // AC-3, E-AC-3, DTS, AAC
constexpr uint8_t text_tags[] = {0x56, 0x59};                    // teletext, DVB subtitles
constexpr uint8_t audio_extensions[] = {0x0E, 0x15, 0x19, 0x21}; // DTS-HD, AC-4, DTS-UHD ...
constexpr uint8_t text_extensions[] = {0x20};                    // TTML subtitles

enum : uint8_t { PRIVATE_DATA = 0x06, DESC_REGISTRATION = 0x05, DESC_EXTENSION = 0x7F };

template <typename List, typename Value> bool holds(const List &list, const Value &value) {
  return std::ranges::find(list, value) != std::end(list);
}

// 0: says nothing.
char kind_by_descriptor(uint8_t tag, std::span<const uint8_t> data) {
  if (tag == DESC_REGISTRATION && data.size() >= 4) {
    const std::string_view format(reinterpret_cast<const char *>(data.data()), 4);
    return holds(video_formats, format) ? 'V' : holds(audio_formats, format) ? 'A' : '\0';
  }
  if (tag == DESC_EXTENSION && !data.empty())
    return holds(audio_extensions, data[0]) ? 'A' : holds(text_extensions, data[0]) ? 'S' : '\0';
  return holds(audio_tags, tag) ? 'A' : holds(text_tags, tag) ? 'S' : '\0';
}

} // namespace

char kind_of_stream(uint8_t stream_type, std::span<const uint8_t> descriptors) {
  if (holds(video_types, stream_type))
    return 'V';
  if (holds(audio_types, stream_type))
    return 'A';
  char kind = 0;
  if (stream_type == PRIVATE_DATA)
    for_each_descriptor(descriptors, [&](uint8_t tag, std::span<const uint8_t> data) {
      if (kind == 0)
        kind = kind_by_descriptor(tag, data);
    });
  return kind != 0 ? kind : 'D';
}
