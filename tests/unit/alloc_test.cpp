// Ordinary packets cost no allocation.

#include <cerrno>
#include <cstdlib>

#include <gtest/gtest.h>

#include "support/engine.h"
#include "syswrap/syswrap.h"

// The sanitizers count allocations of their own.
#ifndef KORVA_SANITIZED

extern "C" void *__libc_malloc(size_t size);
extern "C" void *__libc_calloc(size_t count, size_t size);

static size_t g_allocations;

extern "C" void *malloc(size_t size) {
  ++g_allocations;
  return __libc_malloc(size);
}

extern "C" void *calloc(size_t count, size_t size) {
  ++g_allocations;
  return __libc_calloc(count, size);
}

TEST(alloc, none_per_packet) {
  engine e;
  e.cfg.max_pcr_delta = e.cfg.max_pdts_delta = e.cfg.pcr_freq_ms = 1000;
  const size_t none = g_allocations;
  e.start();
  ts_stream s;
  for (uint64_t t = 900'000; t < 1'260'000; t += 3600) {
    s.pes(101, {.pts = t, .dts = t}, {.pcr = t});
    s.pes(102, {.pts = t + 90}, {});
    s.data(101);
    s.data(102);
    s.null();
  }
  const size_t before = g_allocations;
  for (const ts_packet &pkt : s.packets)
    ASSERT_EQ(tsan_process(e, pkt.data()), 0);
  EXPECT_EQ(g_allocations, before);
  EXPECT_GT(before, none); // tables and tests do allocate
}

TEST(alloc, refused_keeps_errno) {
  EXPECT_EQ(W_calloc("caller", SIZE_MAX / 2, 4), nullptr);
  EXPECT_EQ(errno, ENOMEM);
}

#endif
