// What reading a capture costs at least the plain way: blocks of 100 packets through stdio's
// default buffer, and a look at byte 0 and the PID of each packet. scripts/bench holds korva
// against it.

#include <cstdint>
#include <cstdio>

enum : size_t { PKT_SIZE = 188, BLOCK_PKTS = 100 };
static uint8_t g_buf[BLOCK_PKTS * PKT_SIZE];

int main(int argc, char **argv) {
  FILE *file = argc == 2 ? fopen(argv[1], "r") : nullptr;
  if (!file)
    return 2;
  uint64_t out_of_sync = 0, pid_sum = 0;
  while (const size_t n = fread(g_buf, PKT_SIZE, BLOCK_PKTS, file)) {
    for (size_t i = 0; i < n; ++i) {
      const uint8_t *pkt = g_buf + i * PKT_SIZE;
      out_of_sync += pkt[0] != 0x47;
      pid_sum += (pkt[1] & 0x1Fu) << 8 | pkt[2];
    }
  }
  printf("%lu %lu\n", out_of_sync, pid_sum);
  return 0;
}
