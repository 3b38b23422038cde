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

struct coding {
  unsigned id;
  const char *name;
};

constexpr coding type_codings[] = {
    {0x01, "MPEG-1"},       {0x02, "MPEG-2"},       {0x03, "MPEG-1 audio"}, {0x04, "MPEG-2 audio"},
    {0x0F, "AAC"},          {0x10, "MPEG-4"},       {0x11, "AAC LATM"},     {0x15, "metadata"},
    {0x1B, "H.264"},        {0x1C, "MPEG-4 audio"}, {0x1F, "H.264 SVC"},    {0x20, "H.264 MVC"},
    {0x21, "JPEG 2000"},    {0x24, "HEVC"},         {0x25, "HEVC"},         {0x2D, "MPEG-H audio"},
    {0x2E, "MPEG-H audio"}, {0x33, "VVC"},          {0x34, "VVC"},          {0x35, "EVC"},
    {0x42, "AVS"},          {0x81, "AC-3"},         {0x86, "SCTE 35"},      {0x87, "E-AC-3"},
    {0xD1, "Dirac"},        {0xEA, "VC-1"}};

constexpr coding tag_codings[] = {{0x56, "teletext"}, {0x59, "DVB subtitles"}, {0x6A, "AC-3"},
                                  {0x7A, "E-AC-3"},   {0x7B, "DTS"},           {0x7C, "AAC"}};

const char *name_in(std::span<const coding> codings, unsigned id) {
  const auto found = std::ranges::find(codings, id, &coding::id);
  return found != codings.end() ? found->name : "";
}

constexpr const char *format_names[] = {"HEVC", "VVC", "AV1",  "AC-3",       "E-AC-3", "DTS",
                                        "DTS",  "DTS", "Opus", "SMPTE 302M", "AC-4"};

const char *codec_by_descriptor(uint8_t tag, std::span<const uint8_t> data) {
  if (tag != DESC_REGISTRATION || data.size() < 4)
    return name_in(tag_codings, tag);
  const std::string_view format(reinterpret_cast<const char *>(data.data()), 4);
  size_t i = 0;
  for (const std::string_view known : video_formats)
    if (i++; format == known)
      return format_names[i - 1];
  for (const std::string_view known : audio_formats)
    if (i++; format == known)
      return format_names[i - 1];
  return "";
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

const char *codec_of_stream(uint8_t stream_type, std::span<const uint8_t> descriptors) {
  const char *name = name_in(type_codings, stream_type);
  if (stream_type == PRIVATE_DATA)
    for_each_descriptor(descriptors, [&](uint8_t tag, std::span<const uint8_t> data) {
      if (name[0] == '\0')
        name = codec_by_descriptor(tag, data);
    });
  return name;
}
