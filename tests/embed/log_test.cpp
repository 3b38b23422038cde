// Lines of contexts that go to their callers.
#include <algorithm>

#include <gtest/gtest.h>

#include "support/engine.h"

namespace {

using lines = std::vector<std::string>;

void collect(void *to, int level, const char *group, const char *text) {
  static_cast<lines *>(to)->push_back(std::to_string(level) + " " + group + " " + text);
}

void lose_packet(ts_stream &s) {
  s.data(102);
  s.lose(102).data(102);
}

} // namespace

TEST(log, of_two_contexts_goes_to_two_places_and_else_to_the_streams) {
  engine e;
  ts_stream stream;
  stream.pat({{1, 100}});
  stream.pmt(100, {.pcr_pid = 101, .es = {{0x1b, 101}, {0x0f, 102}}});
  lose_packet(stream);
  const ts_bytes bytes = stream.bytes();
  lines to[2];
  tsan_t ctx[2];
  for (int i : {0, 1}) {
    ctx[i] = tsan_init(i == 0 ? "first" : "second", &e.cfg, nullptr);
    tsan_set_log(ctx[i], collect, &to[i]);
    tsan_process_many(ctx[i], bytes.data(), bytes.size() / 188, 188);
  }
  EXPECT_EQ(to[0], (lines{"-1 FSCN ALERT CC-BRK [first] dgram:0 last/current=0/2 pid=102 at 0:1[4]",
                          "-127  ALERT CC-BRK first 102 0 0 2 0:1[4]"}));
  EXPECT_EQ(to[1].size(), 2U);
  tsan_alog_stats(ctx[1]);
  EXPECT_GT(to[1].size(), 6U);
  EXPECT_EQ(e.run(), "");
  lose_packet(e.start().s); // of a context that has no such place
  EXPECT_NE(e.run(), "");
  EXPECT_EQ(to[0].size(), 2U);
  for (tsan_t each : ctx)
    tsan_free(each);
}

TEST(log, has_tables_line_by_line) {
  engine e;
  e.cfg.trk.pmt_diff = e.cfg.trk.pat_diff = true;
  lines to;
  tsan_set_log(e, collect, &to);
  e.start();
  to.clear();
  e.s.pmt(100, {.pcr_pid = 101, .es = {{0x1b, 101}}, .version = 1});
  EXPECT_EQ(e.run(), "");
  ASSERT_GT(to.size(), 6U);
  EXPECT_EQ(to[1], "1 FSCN Older PMT:");
  EXPECT_EQ(std::ranges::count_if(to, [](auto &line) { return line.find('\n') != line.npos; }), 0);
  to.clear();
  e.s.pat({{1, 100}, {2, 200}}, {.version = 1});
  EXPECT_EQ(e.run(), "");
  EXPECT_EQ(std::ranges::count(to, "1 FSCN   * program number=2 pid=200"), 1);
}
