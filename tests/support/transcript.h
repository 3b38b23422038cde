// Transcripts: text files of operations, and below each line of them what they made be written.
//
// A line that begins with "$ " holds operations, separated by ";"; lines that begin with "#" and
// empty ones are for the reader. With KORVA_ACCEPT in the environment, transcripts are written
// anew.
//
//   INSTANTIATE_TEST_SUITE_P(unit, my_transcripts, testing::ValuesIn(files_in(KORVA_UNIT "/mine")),
//                            stem_of);
//   TEST_P(my_transcripts, are_what_is_written) {
//     ts_stream s;
//     expect_transcript(GetParam(), [&](const std::vector<operation> &operations) {
//       for (const operation &op : operations)
//         if (!make_packets(s, op))
//           ...                                  // an operation of this test's own
//       return what_is_made_of(s.packets);
//     });
//   }
#pragma once

#include <algorithm>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/ts_builder.h"

// As "pes 102 pts=900000 x2": words, named values, and how often.
struct operation {
  std::vector<std::string> words;
  std::map<std::string, std::string> named;
  size_t times = 1;

  explicit operation(const std::string &text) {
    std::istringstream in(text);
    for (std::string word; in >> word;)
      if (const size_t equals = word.find('='); equals != word.npos)
        named[word.substr(0, equals)] = word.substr(equals + 1);
      else if (word[0] == 'x')
        times = std::stoul(word.substr(1));
      else
        words.push_back(word);
  }
  bool has(const char *word) const { return std::ranges::count(words, word) != 0; }
  template <typename T = uint16_t> T number(size_t i = 1) const {
    return static_cast<T>(std::stoull(words.at(i), nullptr, 0));
  }
  std::string get(const std::string &name) const {
    const auto found = named.find(name);
    return found != named.end() ? found->second : "";
  }
  template <typename T> std::optional<T> get(const char *name) const {
    if (!named.contains(name))
      return {};
    return static_cast<T>(std::stoull(named.at(name), nullptr, 0));
  }
  template <typename T> T get(const char *name, T otherwise) const {
    return get<T>(name).value_or(otherwise);
  }
};

// Packets, or changes to those to come:
//   pat 1:100 2:200 31*300 version=1 next section=0 last=1   programs on PIDs; 31 from PID 300 on
//   pmt 100 1b:101 0f:102:0a04656e6700 pcr=101 descriptors=52..  streams by type, PID, descriptors
//   pes 102 pts=900000 dts=900000 id=0xe0   data 102 start empty pcr=0 af=183   pcr 101 900000
//   cc 102 14 15 0   null   repeat   lose 102 3   spoil 5 f0 (the last packet from byte 5 on)
// Returns false when the operation is none of these.
bool make_packets(ts_stream &s, const operation &op);

// Holds a transcript against what `play` returns for each of its lines.
using player = std::function<std::string(const std::vector<operation> &)>;
void expect_transcript(const std::filesystem::path &file, const player &play);

std::vector<std::filesystem::path> files_in(const char *directory);
std::string stem_of(const testing::TestParamInfo<std::filesystem::path> &file);
