#include <gtest/gtest.h>
#include <libconfig.h>

#include "support/engine.h"

namespace {

#define TAG_62 "01234567890123456789012345678901234567890123456789012345678901"

// What the program starts with.
const tsan_config start = {true, "", 5000, 0, 0, 0, false, 0, 0, true, 30, {}, false};

std::string in_short(const tsan_config &c) {
  char text[200];
  snprintf(text, sizeof text, "%d [%s] %zu %zu/%zu/%zu %d %zu %zu %d/%ld ", c.is_enabled, c.source,
           c.max_skip_pkts, c.max_pdts_delta, c.max_pcr_delta, c.pcr_freq_ms, c.access_log_alerts,
           c.dump_stats_period, c.max_ndat_pcount, c.cc_track, c.cc_max_ms0_ms);
  std::string flags(8, '0');
  for (size_t i = 0; i < 8; ++i)
    flags[i] += reinterpret_cast<const bool *>(&c.trk)[i];
  return text + flags;
}

} // namespace

TEST(tsan_config, settings_file) {
  const struct {
    int rc;
    const char *section, *expected;
  } cases[] = {
      {0, "enabled = 1; max_skipped_pkts = 10;", "0 [] 5000 0/0/0 0 0 0 1/30 00000000"},
      {0,
       "enabled = true; access_log_alerts = true; max_skipped_pkts = 0; dump_stats_period = 4;"
       "max_pdts_delta_ms = 1; max_pcr_delta_ms = \"2K\"; pcr_freq_ms = 3L; max_ndat_pcount = 5;",
       "1 [] 0 1/2048/3 1 4 5 1/30 00000000"},
      {0, "enabled = true; cc = { max_zreset_time = 3000000; };",
       "1 [] 9000 500/0/0 0 0 10000 0/-1294967296 00000000"},
      {0, "enabled = true; cc = true; track = 0;", "1 [] 9000 500/0/0 0 0 10000 0/0 00000100"},
      {0, "enabled = true; track = true; sdt_ignore = true; cc = { track = true; };",
       "1 [] 9000 500/0/0 0 0 10000 1/0 10000000"},
      {0, "enabled = true; track = { sdt_ignore = true; };",
       "1 [] 9000 500/0/0 0 0 10000 1/30 00000000"},
      {-5,
       "enabled = true; source_tag = \"" TAG_62 "\"; max_pcr_delta_ms = \"x\"; pcr_freq_ms = 3;",
       "1 [" TAG_62 "] 9000 500/0/0 0 0 0 1/30 00000000"},
      {-1, "enabled = true; source_tag = \"" TAG_62 "3\"; max_pdts_delta_ms = 1;",
       "1 [] 5000 0/0/0 0 0 0 1/30 00000000"},
  };
  for (const auto &c : cases) {
    engine e;
    config_t file;
    config_init(&file);
    ASSERT_EQ(config_read_string(&file, c.section), CONFIG_TRUE) << c.section;
    tsan_config cfg = start;
    EXPECT_EQ(tsan_load_config(config_root_setting(&file), &cfg), c.rc) << c.section;
    EXPECT_EQ(in_short(cfg), c.expected) << c.section;
    EXPECT_EQ(e.run().find("tsan_load_config: failed to load config, rc=") != std::string::npos,
              c.rc != 0);
    config_destroy(&file);
  }
}

TEST(tsan_config, words) {
  engine e;
  tsan_config cfg = start;
  for (const char *word : {"OFF", "skipped_pkts=0", "pdts_delta=12ms", "pcr_delta=1=2",
                           "pcr_freq=3", "max_zreset_time=2", "cc_track=x", "PCR_DELTA=3"})
    EXPECT_EQ(tsan_cli_opt(word, &cfg), 0);
  EXPECT_EQ(tsan_cli_opt("pcr_delta", &cfg), 22);
  EXPECT_EQ(tsan_cli_opt("pcr_delta=-1", &cfg), 22);
  EXPECT_EQ(e.run(), "(ERR)  FSCN  tsan_cli_opt: invalid option string format: pcr_delta\n"
                     "(ERR)  FSCN  tsan_cli_opt: invalid parameter value: -1/-1\n");
  const char *traces[][2] = {{"", "00000000"},
                             {"pmt_d", "00000010"},
                             {"-sdt_i,pcr_update:?", "10001010"},
                             {"ALL", "11111010"},
                             {"all:cc_t:pat_d", "00000111"}};
  for (const auto &[word, flags] : traces) {
    EXPECT_EQ(tsan_xtrack_opt(word, &cfg), 0);
    EXPECT_EQ(in_short(cfg), std::string("0 [] 0 12/1/3 0 0 0 0/2 ") + flags) << word;
  }
}
