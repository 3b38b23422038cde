// Makes a large capture for measurements: make_stream single|multiplex|breaks MEGABYTES FILE
//
// single: one program of 20 Mbit/s: H.264 video with a picture every 40 ms and two audio tracks,
// PCR every 40 ms, PAT and PMT every 100 ms, a few null packets. multiplex: 30 programs of 30
// streams, interleaved with 1,000 PIDs that no PMT lists. breaks: one stream whose counter is never
// in order.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "support/ts_builder.h"

namespace {

enum : uint64_t { PICTURE_TICKS = 3600 }; // 40 ms of the 90 kHz clock

// Writes out what has been built and starts anew; the counters go on.
bool flush(ts_stream &s, FILE *out) {
  const bool ok =
      fwrite(s.packets.data(), sizeof(ts_packet), s.packets.size(), out) == s.packets.size();
  s.packets.clear();
  return ok;
}

void add_picture(ts_stream &s, uint64_t n) {
  const uint64_t now = 900'000 + n * PICTURE_TICKS;
  if (n % 5 == 0) {
    s.pat({{1, 100}});
    s.pmt(100, {.pcr_pid = 101, .es = {{0x1b, 101}, {0x0f, 102}, {0x03, 103}}});
  }
  s.pes(101, {.pts = now + 2 * PICTURE_TICKS, .dts = now + PICTURE_TICKS}, {.pcr = now});
  for (int i = 0; i < 520; ++i) {
    s.data(101);
    if (i % 260 == 100) {
      s.pes(102, {.pts = now + PICTURE_TICKS + 900, .stream_id = 0xc0});
      s.pes(103, {.pts = now + PICTURE_TICKS + 1800, .stream_id = 0xc1});
    }
    if (i % 52 == 0) {
      s.data(102);
      s.data(103);
    }
  }
  s.null();
}

uint16_t pid_of(unsigned program, unsigned stream) {
  return static_cast<uint16_t>(1000 + program * 40 + stream);
}

void add_round(ts_stream &s, uint64_t n) {
  if (n % 8 == 0) {
    std::vector<pat_entry> entries;
    for (uint16_t p = 0; p < 30; ++p)
      entries.push_back({static_cast<uint16_t>(p + 1), static_cast<uint16_t>(100 + p)});
    s.pat(entries);
    for (uint16_t p = 0; p < 30; ++p) {
      pmt_spec pmt = {.program = static_cast<uint16_t>(p + 1), .pcr_pid = pid_of(p, 0)};
      for (unsigned i = 0; i < 30; ++i)
        pmt.es.push_back({static_cast<uint8_t>(i == 0 ? 0x1b : 0x0f), pid_of(p, i)});
      s.pmt(static_cast<uint16_t>(100 + p), pmt);
    }
  }
  for (unsigned i = 0; i < 1000; ++i) {
    if (i < 900)
      s.data(pid_of(i % 30, i / 30));
    s.data(static_cast<uint16_t>(4000 + i));
  }
}

void add_breaks(ts_stream &s, uint64_t n) {
  if (n == 0) {
    s.pat({{1, 100}});
    s.pmt(100, {.pcr_pid = 101, .es = {{0x1b, 101}}});
  }
  for (int i = 0; i < 1000; ++i)
    s.lose(101).data(101);
}

struct stream_kind {
  std::string_view name;
  void (*add)(ts_stream &s, uint64_t n); // the n-th stretch
};

constexpr stream_kind kinds[] = {
    {"single", add_picture}, {"multiplex", add_round}, {"breaks", add_breaks}};

} // namespace

int main(int argc, char **argv) {
  const auto *kind =
      std::ranges::find(kinds, std::string_view(argc == 4 ? argv[1] : ""), &stream_kind::name);
  FILE *out = kind != std::end(kinds) ? fopen(argv[3], "w") : nullptr;
  if (!out) {
    fprintf(stderr, "Usage: %s single|multiplex|breaks MEGABYTES FILE\n", argv[0]);
    return 1;
  }
  const uint64_t packets = strtoull(argv[2], nullptr, 10) * 1'000'000 / sizeof(ts_packet);
  ts_stream s;
  bool ok = true;
  uint64_t written = 0;
  for (uint64_t n = 0; ok && written < packets; ++n) {
    kind->add(s, n);
    written += s.packets.size();
    ok = flush(s, out);
  }
  return ok && fclose(out) == 0 ? 0 : 1;
}
