// An operation of a transcript, as "pes 102 pts=900000 x2": words, named values, and how often.
#pragma once

#include <algorithm>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "support/engine.h"

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
  // A word that may hold blanks, written as "_", or be empty, written as a lone "_".
  std::string text(size_t i = 1) const {
    std::string out = words.at(i) == "_" ? "" : words[i];
    std::ranges::replace(out, '_', ' ');
    return out;
  }
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

using action = void (*)(engine &, const operation &);

extern const std::map<std::string, action> library_calls; // in library_test.cpp
