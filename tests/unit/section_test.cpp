// Sections as no multiplexer makes them.
#include <gtest/gtest.h>

#include "support/engine.h"

namespace {

// The text that the analyzer makes of a PMT section.
std::string rendering(const ts_bytes &section) {
  engine e;
  e.cfg.trk.pmt_diff = true;
  e.s.pat({{1, 100}}), e.s.section(100, section);
  return e.run();
}

std::string text_of(const std::string &lines) {
  return "Using PMT:\nnew PMT program=1 version=0 pcrpid=267\n" + lines + "end PMT\n";
}

#define VIDEO                                                                                      \
  "  * ES pid=267 streamtype=0x1b streamtype_txt=\"H.264/14496-10 video (MPEG-4/AVC)\"\n"

} // namespace

// The library's validation of these never ends: a length in them, or behind them in the descriptor
// that follows, makes it step by 0.
TEST(section, endless_descriptors) {
  const ts_bytes descriptors = {0x45, 1, 1,    0xfe, 0,    0x51, 4, 0, 0,    0,    0xfc, 0x5b,
                                1,    7, 0x80, 1,    0xfc, 0x5c, 1, 7, 0x81, 1,    0xfc, 0x5d,
                                1,    7, 0x82, 1,    0xfb, 0x5e, 2, 0, 7,    0x83, 1,    0xfc,
                                0x6c, 1, 7,    0x84, 7,    0,    0, 0, 0,    0,    0,    0xf6,
                                0x6d, 1, 7,    0x85, 4,    0,    0, 0, 0xf9};
  const std::string lines = R"(    - desc 00 unknown length=1 value=01
    - desc fe unknown length=0 value=
    - desc 00 unknown length=4 value=000000fc
    - desc 00 unknown length=1 value=07
    - desc 80 unknown length=1 value=fc
    - desc 00 unknown length=1 value=07
    - desc 81 unknown length=1 value=fc
    - desc 00 unknown length=1 value=07
    - desc 82 unknown length=1 value=fb
    - desc 00 unknown length=2 value=0007
    - desc 83 unknown length=1 value=fc
    - desc 00 unknown length=1 value=07
    - desc 84 unknown length=7 value=000000000000f6
    - desc 00 unknown length=1 value=07
    - desc 85 unknown length=4 value=000000f9
)";
  const es_spec es = {0x1b, 267, descriptors};
  EXPECT_EQ(rendering(pmt_section({.pcr_pid = 267, .es = {es}, .descriptors = descriptors})),
            text_of(lines + VIDEO + lines));
}

// Cutting a length can be what makes the step 0: the provider's name of 11 bytes ends before the
// upper length byte of the third stream, 0xf1 at first and 0xf0 once cut; 5 + 11 + 0xf0 is 256.
TEST(section, descriptor_endless_after_a_cut) {
  ts_bytes pmt = pmt_section({.pcr_pid = 267,
                              .es = {{0x1b, 267}, {0x0f, 102, {0}}, {0x0f, 103}},
                              .descriptors = {0x5d, 1, 0}});
  pmt[29] = 0xf1;
  EXPECT_NE(rendering(pmt).find("    - desc 00 unknown length=1 value=00\n" VIDEO),
            std::string::npos);
}

TEST(section, lengths_are_cut) {
  const ts_bytes sound = pmt_section({.pcr_pid = 267,
                                      .es = {{0x1b, 267, {0x80, 1, 7}}},
                                      .descriptors = {0x50, 7, 1, 2, 3, 'e', 'n', 'g', 'x'}});
  const std::string component = "    - desc 50 component stream_content=0x01 component_type=0x02 "
                                "component_tag=3 language=eng text=\"x\"/>\n",
                    other = "    - desc 80 unknown length=1 value=07\n";
  const struct {
    const char *what;
    size_t at; // which bytes are overwritten
    ts_bytes bytes;
    std::string lines;
  } cases[] = {
      {"sound", 0, {}, component + VIDEO + other},
      {"descriptor past its loop", 27, {255}, component + VIDEO + other},
      {"loop past the section", 24, {0xff, 0xff}, component + VIDEO + other},
      {"program loop past the section",
       10,
       {0xff, 0xff},
       component + "    - desc 1b mpeg4_video visual_profile_and_level=0x0b\n"},
      {"half an entry at the end", 24, {0xf0, 0}, component + VIDEO},
      {"no room for an entry", 1, {0xb0, 22}, component},
      {"no room for a header", 1, {0xb0, 0}, ""},
  };
  for (const auto &c : cases) {
    ts_bytes section = sound;
    std::ranges::copy(c.bytes, section.begin() + static_cast<std::ptrdiff_t>(c.at));
    const std::string text = text_of(c.lines);
    EXPECT_EQ(rendering(section).substr(0, text.size()), text) << c.what;
  }
}

TEST(section, one_byte_at_the_end_of_a_loop_is_no_descriptor) {
  const ts_bytes pmt =
      pmt_section({.pcr_pid = 267, .es = {{0x1b, 267}}, .descriptors = {0x80, 0, 0x52}});
  const std::string start =
      "    - desc 80 unknown length=0 value=\n    - desc 00 unknown length=27 ";
  EXPECT_NE(rendering(pmt).find(start), std::string::npos);
}

TEST(section, packets_without_a_section) {
  engine e;
  e.start();
  for (const uint8_t length : std::initializer_list<uint8_t>{182, 183, 184, 255})
    for (const bool has_payload : {false, true})
      for (const uint16_t pid : std::initializer_list<uint16_t>{0, 100})
        e.s.packet(pid, {.unit_start = true, .has_payload = has_payload, .af_length = length});
  EXPECT_EQ(e.run(), "");
  EXPECT_TRUE(e->nprogs == 1 && e->pg[0].nstreams == 2);
}

TEST(section, numbers_of_pat_sections) {
  engine e;
  e.s.pat({{1, 100}}, {.last_section = 255}), e.run();
  EXPECT_FALSE(e->pat.sec[0]);
  // A section behind the last of a complete table: the library releases it at once. Such a table
  // is only met again after a PAT without programs.
  e.s.pat({{1, 100}}), e.s.pat({}, {.version = 1}), e.run();
  EXPECT_EQ(e->nprogs, 0U);
  e.s.pat({{1, 300}}, {.section = 5}), e.run();
  EXPECT_TRUE(e->nprogs == 1 && e->pmt_pid[0] == 100);
}

TEST(section, programs_past_the_32nd_are_dropped) {
  engine e;
  std::vector<pat_entry> list[2];
  for (uint16_t i = 0; i < 34; ++i)
    list[i / 20].push_back({i, static_cast<uint16_t>(100 + i)});
  e.s.pat(list[0], {.last_section = 1}), e.s.pat(list[1], {.section = 1, .last_section = 1});
  e.s.pmt(132, {.pcr_pid = 0}), e.s.pmt(131, {.pcr_pid = 1000, .es = {{3, 1000}}});
  EXPECT_EQ(e.run(), "(ERR)  FSCN  process_PAT: [src] too many programs in PAT at PAT[2]\n");
  EXPECT_TRUE(e->nprogs == 32 && e->pg[31].nstreams == 1);
}
