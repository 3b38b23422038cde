// --clip: which pieces of a capture are cut out of it, by what is found and when.
#pragma once

#include <algorithm>
#include <cstdint>
#include <map>
#include <vector>

#include "audit/audit.h"

// A piece around one or several findings.
struct clip {
  double from, to; // s of stream time
  double time;     // of the first finding in it, s
  audit_kind kind; // of that one
  int32_t pid;     // -1: none
  uint64_t findings = 1;
  bool is_cut_off = false;      // a finding in it lasts longer than a clip may
  uint64_t begin = 0, size = 0; // bytes of the file
};

class clip_plan {
public:
  enum : size_t { MOST_CLIPS = 50 };

  // Takes a finding. Throws when memory is refused.
  void add(const audit_finding &finding);

  // Takes when records came: `time`, s, lies in the bytes from `begin` to `end`. Throws as above.
  void add_time(double time, uint64_t begin, uint64_t end);

  // No stream time is known.
  bool is_without_clock() const { return times.empty(); }

  // The first clips, in their order; of bytes from `first` to `last`.
  std::vector<clip> clips(uint64_t first, uint64_t last) const;

  // Pieces that there are more than that.
  size_t left_out() const { return pieces.size() - std::min<size_t>(pieces.size(), MOST_CLIPS); }

private:
  struct moment {
    double time;
    uint64_t begin, end;
  };

  std::map<double, clip> pieces; // by their begin
  std::vector<moment> times;     // rising
  double apart = 0;              // least distance of these, s
};
