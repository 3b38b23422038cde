// Framing: streams with planted faults, as files, and through pipes and by hand in odd pieces.
//
// A stream is written as words: P6 is six packets, B one whose sync byte is wrong, G100 so many
// bytes of garbage, S100 so many sync bytes, C30 cuts so many bytes off the end.
// What is found is written as words too: 188 the packet size, +4 leading bytes, P6, B, L100 lost
// bytes, -3 bytes behind the last record.

#include "input/framing.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <functional>
#include <sstream>
#include <string>
#include <thread>
#include <utility>

#include "input/byte_source.h"
#include "input/fed_source.h"

namespace {

std::string make(size_t size, const std::string &words) {
  std::istringstream in(words);
  std::string stream;
  for (char what; in >> what;) {
    size_t n = 1;
    if (what != 'B')
      in >> n;
    std::string record(size, '\1');
    record[size == 192 ? 4 : 0] = what == 'P' ? '\x47' : '\2';
    if (what == 'C')
      stream.resize(stream.size() - n);
    else if (what == 'G' || what == 'S')
      stream += std::string(n, what == 'S' ? '\x47' : '\3');
    else
      while (n-- > 0)
        stream += record;
  }
  return stream;
}

// What framing finds; every packet handed out has to begin with a sync byte.
std::string look(byte_input &source, size_t size, uint64_t first, uint64_t most,
                 const std::function<void()> &feed) {
  framing packets(source, size);
  while (!packets.start(first)) {
    if (!source.is_starved())
      return "none " + std::to_string(packets.bytes_read());
    feed();
  }
  std::ostringstream found;
  found << packets.packet_size();
  if (packets.leading_bytes() != 0)
    found << " +" << packets.leading_bytes();
  uint64_t run = 0;
  for (framing_step step = {framing_step::PACKETS}; most != 0 && step.what != framing_step::END;) {
    while ((step = packets.next(most)).what == framing_step::STARVED)
      feed();
    const bool is_run = step.what == framing_step::PACKETS;
    size_t count = 0;
    while (is_run && count < step.count && step.bytes[count * packets.packet_size()] == 0x47)
      ++count;
    packets.took(count);
    run += count;
    most -= is_run ? count : step.count;
    if (run != 0 && (!is_run || most == 0))
      found << " P" << std::exchange(run, 0);
    if (step.what == framing_step::BAD_SYNC)
      found << " B";
    if (step.what == framing_step::LOSS)
      found << " L" << step.lost_bytes;
  }
  if (packets.tail_bytes() != 0)
    found << " -" << packets.tail_bytes();
  return found.str();
}

std::string look(int fd, size_t size, uint64_t first = 1, uint64_t most = UINT64_MAX) {
  byte_source source;
  EXPECT_EQ(source.open(("/proc/self/fd/" + std::to_string(fd)).c_str()), 0);
  return look(source, size, first, most, nullptr);
}

// Each piece is gone when the next one comes.
std::string look_when_fed(const std::string &stream, size_t size, size_t piece) {
  fed_source source;
  std::vector<uint8_t> bytes;
  size_t at = 0;
  return look(source, size, 1, UINT64_MAX, [&] {
    source.keep();
    const size_t end = std::min(at + piece, stream.size());
    bytes = std::vector<uint8_t>(&stream[at], &stream[end]);
    at == end ? source.finish() : source.feed(bytes);
    at = end;
  });
}

void write_all(int fd, const char *bytes, size_t size) {
  while (size > 0) {
    const ssize_t n = write(fd, bytes, size);
    ASSERT_GT(n, 0);
    bytes += n;
    size -= static_cast<size_t>(n);
  }
}

std::string look_at_file(const std::string &stream, size_t size, uint64_t first = 1,
                         uint64_t most = UINT64_MAX) {
  const int fd = memfd_create("stream", 0);
  write_all(fd, stream.data(), stream.size());
  const std::string found = look(fd, size, first, most);
  close(fd);
  return found;
}

std::string look_at_pipe(const std::string &stream, size_t piece) {
  int ends[2];
  EXPECT_EQ(pipe(ends), 0);
  std::thread writer([&] {
    for (size_t at = 0; at < stream.size(); at += piece)
      write_all(ends[1], &stream[at], std::min(piece, stream.size() - at));
    close(ends[1]);
  });
  const std::string found = look(ends[0], 0);
  writer.join();
  close(ends[0]);
  return found;
}

struct framing_case {
  size_t size;
  const char *stream, *found;
};

const framing_case cases[] = {
    {188, "P9", "188 P9"},
    {192, "P9", "192 P9"},
    {204, "P9", "204 P9"},
    {208, "P9", "208 P9"},
    // Garbage in front, with sync bytes of its own.
    {188, "G1 P9", "188 +1 P9"},
    {192, "G3 P9", "192 +3 P9"},
    {208, "G700 S3 G90 P300", "208 +793 P300"},
    {204, "G900 S4 P300", "204 +904 P300"},
    // One or two packets, or none.
    {188, "P1", "188 P1"},
    {192, "P1", "192 P1"},
    {204, "P1", "204 P1"},
    {188, "G1 P1", "none 189"},
    {188, "G1 P2", "188 +1 P2"},
    {188, "P1 C1", "none 187"},
    {188, "G2000", "none 2000"},
    {188, "G0", "none 0"},
    // What is left at the end.
    {188, "P6 G187", "188 P6 -187"},
    {192, "P6 C1", "192 P5 -191"},
    {204, "P6 C16", "204 P6"},
    {204, "P6 C17", "204 P5 -187"},
    {208, "P6 C100", "208 P5 -108"},
    // Bad sync bytes.
    {188, "P6 B P1 B P6", "188 P6 B P1 B P6"},
    {192, "P6 B", "192 P6 B"},
    {204, "P6 B P1 B C16", "204 P6 B P1 B"},
    {188, "P6 B G187", "188 P6 L375"},
    // Sync lost: two bad ones, bytes that are missing or too many, to the end.
    {188, "P6 B B P6", "188 P6 L376 P6"},
    {192, "P6 B B P6", "192 P6 L384 P6"},
    {188, "P6 C100 P9", "188 P6 L88 P8"},
    {204, "P6 G7 P9 G9 P9", "204 P6 L7 P9 L9 P9"},
    {192, "P6 G4 P9", "192 P6 L196 P8"},
    {192, "P6 G5 P9", "192 P6 L5 P9"},
    {188, "P6 G3000 P9", "188 P6 L3000 P9"},
    {188, "P6 G7 P2", "188 P6 L7 P2"},
    {188, "P6 G7 P1 C1", "188 P6 L194"},
    {188, "P6 G7 P1", "188 P6 L7 P1"},
    {188, "P6 G1000", "188 P6 L1000"},
    {208, "P6 G1000", "208 P6 L1000"},
    {192, "P6 G1000", "192 P6 L1000"},
    // The size stays when the grid is found again; the longest of several grids is taken.
    {188, "P300 G20000 P9", "188 P300 L20000 P9"},
    {188, "S947 P300", "188 +7 P305"},
};

TEST(Framing, finds_what_was_planted) {
  for (const auto &[size, words, found] : cases) {
    const std::string stream = make(size, words);
    EXPECT_EQ(look_at_file(stream, 0), found) << size << ": " << words;
    for (const size_t piece : {size_t{11}, size_t{187}, size_t{4099}}) {
      EXPECT_EQ(look_at_pipe(stream, piece), found) << size << ": " << words;
      EXPECT_EQ(look_when_fed(stream, 0, piece), found) << size << ": " << words;
    }
  }
}

TEST(Framing, reads_what_was_asked_for) {
  const std::string stream = make(192, "G9 P50 B P50");
  EXPECT_EQ(look_at_file(stream, 192), "192 +9 P50 B P50");
  EXPECT_EQ(look_at_file(stream, 0, 49, 4), "192 +9 P2 B P1");
  EXPECT_EQ(look_at_file(stream, 0, 51), "192 +9 B P50");
  EXPECT_EQ(look_at_file(stream, 0, 101), "192 +9 P1");
  EXPECT_EQ(look_at_file(stream, 0, 102), "none 19401");
  EXPECT_EQ(look_at_file(stream, 0, UINT64_MAX), "none 19401");
  EXPECT_EQ(look_at_file(stream, 188), "none 19401");
  EXPECT_EQ(look_at_file(make(188, "P9 G999"), 0, 11), "none 2691");
}

// Grids at every byte, each of which ends before the next packet is due, or one byte after that.
TEST(Framing, is_linear_in_hostile_bytes) {
  for (const size_t syncs : {size_t{4}, size_t{5}, size_t{256}}) {
    const std::string part = std::string(syncs * 188, '\x47') + std::string(2 * 188, '\0');
    std::string stream;
    while (stream.size() < 8 << 20)
      stream += part;
    const std::string found = look_at_file(stream, 188);
    EXPECT_EQ(found.substr(0, 5), syncs < 5 ? "none " : "188 P") << syncs;
    EXPECT_EQ(look_when_fed(stream, 188, 1316), found);
  }
}

} // namespace
