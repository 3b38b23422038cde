// Bytes of files that change while they are looked at, and of pipes.
#include "input/byte_source.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <random>
#include <thread>

namespace {

int read_failing; // with this errno

constexpr uint64_t MB = 1'000'000, SIZE = 7 * MB + 77, LONGEST = 13 * MB;
constexpr uint64_t LOOK = 2 << 20; // at a time

// What files hold. No byte is 0, as those are that a file has lost.
const std::vector<uint8_t> content = [] {
  std::vector<uint8_t> bytes(LONGEST);
  for (uint64_t at = 0; at < LONGEST; ++at)
    bytes[at] = static_cast<uint8_t>(1 + at % 251);
  return bytes;
}();

struct test_file {
  int fd;
  byte_source source;

  explicit test_file(int file) : fd(file) {
    EXPECT_EQ(source.open(("/proc/self/fd/" + std::to_string(fd)).c_str()), 0);
  }
  ~test_file() { close(fd); }
};

void append(int fd, uint64_t from, uint64_t to) {
  while (from < to) {
    const ssize_t n = write(fd, &content[from], to - from);
    ASSERT_GT(n, 0);
    from += static_cast<uint64_t>(n);
  }
}

int new_file(uint64_t size) {
  const int fd = memfd_create("bytes", 0);
  append(fd, 0, size);
  return fd;
}

// Reads on to the offset `to` or the end, in steps of every kind; bytes that are not the file's are
// asked for once more. Returns where that ends.
uint64_t read_on(byte_source &source, uint64_t from, uint64_t to = UINT64_MAX) {
  std::minstd_rand random(1);
  while (from < to) {
    const size_t least = std::min<uint64_t>(1 + random() % byte_source::LEAST_MAX, to - from);
    size_t right = 0;
    for (const bool again : {false, true}) {
      const std::span bytes = again ? source.fetch_again(from, least) : source.fetch(from, least);
      const std::span there = bytes.first(std::min(bytes.size(), least));
      right = static_cast<size_t>(
          std::ranges::mismatch(there, std::span(content).subspan(from)).in1 - there.begin());
      if (right == there.size())
        break;
      EXPECT_FALSE(again) << from + right;
    }
    from += right;
    if (right < least)
      break;
  }
  return from;
}

} // namespace

// In the C library's place.
extern "C" ssize_t read(int fd, void *buf, size_t size) {
  if (read_failing == 0)
    return syscall(SYS_read, fd, buf, size);
  errno = read_failing;
  return -1;
}

TEST(byte_source, gives_what_a_pipe_brings) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  std::thread writer([&] {
    append(ends[1], 0, 2 * MB);
    close(ends[1]);
  });
  test_file file(ends[0]);
  EXPECT_EQ(file.source.seek(5), ESPIPE);
  EXPECT_EQ(file.source.remaining(), 0u);
  EXPECT_EQ(read_on(file.source, 0), 2 * MB);
  writer.join();
}

TEST(byte_source, ends_where_the_file_ends_now) {
  const struct {
    uint64_t reached, new_size; // at that place, the file gets this size
    uint64_t end;
    int error = 0;
  } cases[] = {
      {0, SIZE, SIZE},
      {0, 100, 100},
      {2 * MB, 3 * MB, 3 * MB},
      {2 * MB, 3 * MB, 3 * MB, EIO},
      {2 * MB, 2 * MB + 5, 2 * MB + 5},       // in the page at hand
      {2 * MB, 2 * MB + 9000, 2 * MB + 9000}, // in pages that were looked at
      {2 * MB, 0, 2 * MB},
      {SIZE - 7, SIZE - 7, SIZE - 7},
      {SIZE - 1, SIZE + 9, SIZE + 9},
      {SIZE - 1, SIZE + 5 * MB, SIZE + 5 * MB},
  };
  for (const auto &[reached, new_size, end, error] : cases) {
    SCOPED_TRACE(testing::Message() << reached << " of " << new_size);
    test_file file(new_file(SIZE));
    EXPECT_EQ(file.source.seek(3), 0);
    EXPECT_EQ(file.source.remaining(), SIZE - 3);
    uint64_t at = read_on(file.source, 3, reached);
    if (new_size > SIZE)
      append(file.fd, SIZE, new_size);
    ASSERT_EQ(ftruncate(file.fd, static_cast<off_t>(new_size)), 0);
    read_failing = error;
    at = read_on(file.source, at, SIZE); // within the window, and then on
    at = read_on(file.source, at);
    read_failing = 0;
    EXPECT_LE(at, end);
    EXPECT_GE(at, error != 0 ? end - LOOK : end); // an error is met where the file is looked at
    EXPECT_EQ(file.source.read_errno(), error);
    append(file.fd, std::max(new_size, SIZE), LONGEST); // too late
    EXPECT_TRUE(file.source.fetch(at, 1).empty());
  }
}

// Before and after the file, and meanwhile for what is not in it, SIGBUS is what it was.
TEST(byte_source, leaves_others_their_faults) {
  const int gone = new_file(1);
  const auto *outside =
      static_cast<volatile uint8_t *>(mmap(nullptr, 4096, PROT_READ, MAP_SHARED, gone, 0));
  const auto die = [&](auto way) {
    test_file file(new_file(SIZE));
    read_on(file.source, 0, 1);
    way();
  };
  signal(SIGBUS, [](int) { _exit(7); });
  sigset_t bus;
  sigemptyset(&bus);
  sigaddset(&bus, SIGBUS);
  ASSERT_EQ(ftruncate(gone, 0), 0);
  EXPECT_EXIT(die([] { raise(SIGBUS); }), testing::ExitedWithCode(7), "");
  EXPECT_EXIT(die([&] { *outside; }), testing::ExitedWithCode(7), "");
  EXPECT_EXIT((die([] {}), raise(SIGBUS)), testing::ExitedWithCode(7), "");
  signal(SIGBUS, SIG_DFL);
  EXPECT_EXIT(die([] { raise(SIGBUS); }), testing::KilledBySignal(SIGBUS), "");
  EXPECT_EXIT(die([&] { *outside; }), testing::KilledBySignal(SIGBUS), "");
  close(gone);
}
