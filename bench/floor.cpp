// What looking at byte 0 and the PID of each packet of a capture costs at least: floor read|mapped
// FILE
//
// read: the plain way, blocks of 100 packets through stdio's default buffer. mapped: the whole file
// in memory, where the kernel keeps it. scripts/bench holds korva against both.

#include <cstdint>
#include <cstdio>
#include <string_view>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

namespace {

enum : size_t { PKT_SIZE = 188, BLOCK_PKTS = 100 };

struct sums {
  uint64_t out_of_sync = 0, pids = 0;

  void add(const uint8_t *packets, size_t count) {
    for (const uint8_t *pkt = packets; pkt != packets + count * PKT_SIZE; pkt += PKT_SIZE) {
      out_of_sync += pkt[0] != 0x47;
      pids += (pkt[1] & 0x1Fu) << 8 | pkt[2];
    }
  }
};

bool read_all(const char *path, sums &sum) {
  static uint8_t block[BLOCK_PKTS * PKT_SIZE];
  FILE *file = fopen(path, "r");
  if (!file)
    return false;
  while (const size_t n = fread(block, PKT_SIZE, BLOCK_PKTS, file))
    sum.add(block, n);
  return true;
}

bool map_all(const char *path, sums &sum) {
  struct stat st;
  const int fd = open(path, O_RDONLY);
  if (fd == -1 || fstat(fd, &st) != 0)
    return false;
  const auto size = static_cast<size_t>(st.st_size);
  void *bytes = mmap(nullptr, size, PROT_READ, MAP_SHARED, fd, 0);
  if (bytes == MAP_FAILED)
    return false;
  sum.add(static_cast<const uint8_t *>(bytes), size / PKT_SIZE);
  return true;
}

} // namespace

int main(int argc, char **argv) {
  sums sum;
  const std::string_view way = argc == 3 ? argv[1] : "";
  if (!(way == "read" && read_all(argv[2], sum)) && !(way == "mapped" && map_all(argv[2], sum)))
    return 2;
  printf("%lu %lu\n", sum.out_of_sync, sum.pids);
  return 0;
}
