#include "outputs/clip_plan.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr double AROUND_S = 2;   // before the first and behind the last event
constexpr double LONGEST_S = 60; // a clip
constexpr size_t MOST_TIMES = 1 << 17;
constexpr double FIRST_APART_S = 0.02;

double or_zero(double time) {
  return std::isnan(time) ? 0 : time;
}

clip around(const audit_finding &f) {
  clip piece = {.from = or_zero(f.time) - AROUND_S,
                .to = or_zero(f.last_time) + AROUND_S,
                .time = or_zero(f.time),
                .kind = f.kind,
                .pid = f.pid};
  piece.is_cut_off = piece.to - piece.from > LONGEST_S;
  piece.to = std::min(piece.to, piece.from + LONGEST_S);
  return piece;
}

// They overlap, and are no longer together than one may be.
bool can_be_one(const clip &a, const clip &b) {
  return std::max(a.from, b.from) <= std::min(a.to, b.to) &&
         std::max(a.to, b.to) - std::min(a.from, b.from) <= LONGEST_S;
}

} // namespace

void clip_plan::add(const audit_finding &f) {
  clip piece = around(f);
  auto next = pieces.upper_bound(piece.from);
  if (next != pieces.begin() && can_be_one(std::prev(next)->second, piece))
    --next;
  while (next != pieces.end() && can_be_one(next->second, piece)) {
    const clip &other = next->second;
    if (other.time <= piece.time) {
      piece.time = other.time;
      piece.kind = other.kind;
      piece.pid = other.pid;
    }
    piece.from = std::min(piece.from, other.from);
    piece.to = std::max(piece.to, other.to);
    piece.findings += other.findings;
    piece.is_cut_off |= other.is_cut_off;
    next = pieces.erase(next);
  }
  pieces.emplace(piece.from, piece);
}

// Of a long capture every second one is forgotten, again and again.
void clip_plan::add_time(double time, uint64_t begin, uint64_t end) {
  if (!times.empty() && time - times.back().time < std::max(apart, FIRST_APART_S))
    return;
  if (times.size() == MOST_TIMES) {
    for (size_t i = 0; i < MOST_TIMES / 2; ++i)
      times[i] = times[2 * i];
    times.resize(MOST_TIMES / 2);
    apart = 2 * std::max(apart, FIRST_APART_S);
  }
  times.push_back({time, begin, end});
}

std::vector<clip> clip_plan::clips(uint64_t first, uint64_t last) const {
  std::vector<clip> out;
  for (auto [from, piece] : pieces) {
    if (out.size() == MOST_CLIPS)
      break;
    const auto behind = std::ranges::upper_bound(times, piece.from, {}, &moment::time);
    const auto end = std::ranges::lower_bound(times, piece.to, {}, &moment::time);
    piece.begin = behind == times.begin() ? first : std::max(first, std::prev(behind)->begin);
    const uint64_t stop = end == times.end() ? last : std::min(last, end->end);
    piece.size = stop - std::min(stop, piece.begin);
    out.push_back(piece);
  }
  return out;
}
