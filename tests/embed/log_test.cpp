// Lines of contexts that go to their callers.
#include <gtest/gtest.h>

#include "support/engine.h"

TEST(log, of_two_contexts_goes_to_two_places_and_of_a_third_to_the_streams) {
  const auto collect = [](void *text, int level, const char *group, const char *line) {
    *static_cast<std::string *>(text) += std::to_string(level) + "/" + group + "/" + line + "\n";
  };
  engine e;
  e.cfg.trk.pat_diff = true;
  ts_stream s;
  s.pat({{1, 100}});
  s.pmt(100, {.pcr_pid = 101, .es = {{0x0f, 102}}});
  s.data(102);
  s.lose(102).data(102);
  s.pat({{1, 100}, {2, 200}}, {.version = 1});
  const ts_bytes bytes = s.bytes();
  for (const std::string source : {"first", "second", "src"}) {
    std::string text;
    tsan_t ctx = tsan_init(source.c_str(), &e.cfg, nullptr);
    if (source != "src")
      tsan_set_log(ctx, collect, &text);
    tsan_process_many(ctx, bytes.data(), bytes.size() / 188, 188);
    tsan_free(ctx);
    EXPECT_EQ(e.run() == "", source != "src");
    EXPECT_EQ(text == "", source == "src");
    if (source == "src")
      continue;
    EXPECT_EQ(text.find("-1/FSCN/ALERT CC-BRK [" + source +
                        "] dgram:0 last/current=0/2 pid=102 at "
                        "0:0[4]\n-127//ALERT CC-BRK " +
                        source + " 102 0 0 2 0:0[4]\n"),
              0U);
    EXPECT_NE(text.find("\n1/FSCN/  * program number=2 pid=200\n1/FSCN/end PAT\n"), text.npos);
  }
}
