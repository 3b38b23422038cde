#include "support/engine.h"

#include <cstdlib>
#include <cstring>
#include <memory>

#include "tsanalyze/clock.h"

timespec test_now;
time_t test_seconds;

bool set_now(timespec *ts) {
  *ts = test_now;
  return test_now.tv_sec >= 0;
}

time_t wall_seconds() {
  return test_seconds;
}

engine::engine() : out(open_memstream(&text, &size)) {
  cfg.is_enabled = cfg.access_log_alerts = cfg.cc_track = true;
  strcpy(cfg.source, "src");
  cfg.max_skip_pkts = 5000;
  log_default(g_log, out);
  log_default(g_access_log, out);
  g_log->time_format = g_access_log->time_format = f_NO_TIME;
  g_log->group = mk_n64_tag("FSCN");
  g_mod_ll[0] = NORM_level;
  test_now = {100, 0};
  test_seconds = 1000;
}

engine::~engine() {
  if (tc)
    tsan_free(tc);
  fclose(out);
  free(text);
  *g_log = *g_access_log = {};
  g_mod_ll[0] = NORM_level;
}

engine::operator tsan_ctx *() {
  if (!tc) {
    tc = tsan_init(nullptr, &cfg, nullptr);
    fflush(out);
    taken = size; // where it lies in memory is of no interest
  }
  return tc;
}

void engine::feed() {
  for (const ts_packet &pkt : s.packets) {
    const auto copy = std::make_unique<ts_packet>(pkt);
    const tsan_many done = tsan_process_many(*this, copy->data(), 1, copy->size());
    rc = done.code == -1 ? tsan_process(*this, copy->data()) : done.code;
  }
  s.packets.clear();
}

std::string engine::run() {
  feed();
  fflush(out);
  const size_t from = taken;
  taken = size;
  return {text + from, size - from};
}

engine &engine::start() {
  s.pat({{1, 100}});
  s.pmt(100, {.pcr_pid = 101, .es = {{0x1b, 101}, {0x0f, 102}}});
  run();
  return *this;
}
