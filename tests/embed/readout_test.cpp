// Records of the read-out across versions of the library.
#include <cerrno>

#include <gtest/gtest.h>

#include "support/engine.h"
#include "tsanalyze/readout.h"

TEST(readout, records_are_as_long_as_the_caller_knows_them) {
  engine e;
  struct {
    tsan_readout known;
    void *unknown;
  } readout = {{sizeof readout, nullptr, nullptr, nullptr, true}, &e}; // a later version's
  EXPECT_EQ(tsan_set_readout(e, &readout.known), 0);
  EXPECT_TRUE(e->readout.measure_all);
  readout.known.size = offsetof(tsan_readout, measure_all);
  EXPECT_EQ(tsan_set_readout(e, &readout.known), 0);
  EXPECT_FALSE(e->readout.measure_all);
  readout.known.size = sizeof(size_t) - 1;
  EXPECT_EQ(tsan_set_readout(e, &readout.known), EINVAL);
  e.start().s.data(102);
  e.run();
  tsan_stats stats = {};
  stats.analyzed = 77;
  stats.size = offsetof(tsan_stats, analyzed); // an earlier version's
  EXPECT_EQ(tsan_get_stats(e, &stats), 0);
  EXPECT_EQ(std::tie(stats.processed, stats.analyzed), std::make_tuple(3u, 77u));
  stats.size = sizeof stats;
  EXPECT_EQ(tsan_get_stats(e, &stats), 0);
  EXPECT_EQ(std::tie(stats.processed, stats.analyzed), std::make_tuple(3u, 1u));
  struct {
    tsan_stats known;
    uint64_t unknown;
  } later = {{}, 77};
  later.known.size = sizeof later;
  EXPECT_EQ(tsan_get_stats(e, &later.known), 0);
  EXPECT_EQ(std::tie(later.known.processed, later.unknown), std::make_tuple(3u, 0u));
  stats.size = 0x7f0000000000; // never set
  EXPECT_EQ(tsan_get_stats(e, &stats), EINVAL);
  tsan_program_stats program = {};
  program.size = sizeof program;
  EXPECT_EQ(tsan_get_program_stats(e, 0, &program), 0);
  EXPECT_EQ(tsan_get_program_stats(e, 1, &program), EINVAL);
  tsan_stream_stats stream = {};
  stream.size = sizeof stream;
  EXPECT_EQ(tsan_get_stream_stats(e, 0, 1, &stream), 0);
  EXPECT_EQ(tsan_get_stream_stats(e, 0, 2, &stream), EINVAL);
  EXPECT_EQ(tsan_get_stream_stats(e, 1, 0, &stream), EINVAL);
}

TEST(readout, tells_numbers_of_programs_and_alerts_of_streams_and_averages) {
  engine e;
  e.cfg.max_pdts_delta = e.cfg.pcr_freq_ms = 1;
  uint32_t number = 0;
  const auto note = [](void *to, const tsan_alert *alert) {
    if (TSAN_HAS(alert, program_number))
      *static_cast<uint32_t *>(to) = alert->program_number;
  };
  const tsan_readout readout = {sizeof readout, &number, note, nullptr, true};
  tsan_set_readout(e, &readout);
  e.s.pat({{7, 100}, {8, 200}}, {.id = 55});
  e.s.pmt(100, {.pcr_pid = 101, .es = {{0x1b, 101}, {0x0f, 102}}});
  e.s.pat({{8, 200}, {9, 100}}, {.id = 56, .version = 1}); // another number of the same program
  e.s.pcr(101, 9000);
  e.s.pes(101, {.pts = 18000});
  e.s.pcr(101, 18000);
  e.s.lose(102).data(102);
  e.s.lose(102).pes(102, {.pts = 90000});
  e.s.pmt(100, {.pcr_pid = 101, .es = {{0x0f, 102}, {0x1b, 101}}, .version = 1});
  e.run(); // counts go with their streams
  tsan_stats stats = {};
  stats.size = sizeof stats;
  tsan_get_stats(e, &stats);
  EXPECT_EQ(std::tie(stats.transport_stream_id, number), std::make_tuple(56U, 9U));
  tsan_program_stats program = {};
  program.size = sizeof program;
  tsan_get_program_stats(e, 0, &program);
  EXPECT_EQ(std::tie(program.program_number, program.stamp_to_pcr.total),
            std::make_tuple(9U, 800U));
  tsan_stream_stats audio = {}, video = {};
  video.size = audio.size = sizeof video;
  tsan_get_stream_stats(e, 0, 0, &audio);
  tsan_get_stream_stats(e, 0, 1, &video);
  EXPECT_EQ(std::tie(video.pcr_freq, video.cc_brk), std::make_tuple(1U, 0U));
  EXPECT_EQ(std::tie(audio.cc_brk, audio.av_delta_plus), std::make_tuple(1U, 1U));
}
