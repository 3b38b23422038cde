#include "audit/rate.h"

#include <algorithm>
#include <array>
#include <span>
#include <utility>

#include "audit/clock.h"
#include "audit/findings.h"

namespace {

constexpr double CONSTANT_SHARE = 0.95;  // of the intervals of a block
constexpr double WHOLE_TOLERANCE = 0.25; // packets
constexpr double LOSS_TOLERANCE = 0.05;  // packets
constexpr double RATE_TOLERANCE = 0.001; // between blocks of one clock
constexpr double PACKET_BYTES = TS_PKT_SIZE;

using intervals = std::span<const rate_interval>;

double seconds(const rate_interval &interval) {
  return static_cast<double>(interval.d) / PCR_HZ;
}

double bytes(const rate_interval &interval) {
  return static_cast<double>(TS_PKT_SIZE * interval.packets);
}

double median_rate(intervals block) {
  std::array<double, BLOCK_INTERVALS> rates;
  std::ranges::transform(block, rates.begin(),
                         [](const rate_interval &i) { return bytes(i) / seconds(i); });
  const std::span sorted(rates.data(), block.size());
  std::ranges::sort(sorted);
  const size_t middle = sorted.size() / 2;
  return sorted.size() % 2 != 0 ? sorted[middle] : (sorted[middle - 1] + sorted[middle]) / 2;
}

// Packets that each interval lacks (+) or has too many (-) at the rate.
using deviations = std::array<double, BLOCK_INTERVALS>;

bool is_constant(std::span<const double> k) {
  const auto whole = std::ranges::count_if(
      k, [](double x) { return std::abs(x - nearest(x)) <= WHOLE_TOLERANCE; });
  const auto missing = std::ranges::count_if(k, [](double x) { return nearest(x) != 0; });
  const auto count = static_cast<double>(k.size());
  return static_cast<double>(whole) >= CONSTANT_SHARE * count &&
         static_cast<double>(missing) <= (1 - CONSTANT_SHARE) * count;
}

event event_at(const rate_interval &interval, audit_kind kind, int32_t pid) {
  event e = {.kind = kind, .pid = pid};
  e.packet = interval.packet;
  e.offset = interval.offset;
  e.time = interval.time;
  return e;
}

void judge_losses(audit_ctx &a, int32_t pid, intervals block, std::span<const double> k) {
  for (size_t i = 0; i < k.size(); ++i) {
    const double whole = nearest(k[i]);
    const auto counted = static_cast<double>(block[i].counted);
    const auto is_opposite = [&](size_t j) { return j < k.size() && nearest(k[j]) == -whole; };
    if (std::abs(k[i] - whole) > LOSS_TOLERANCE || whole <= counted || is_opposite(i - 1) ||
        is_opposite(i + 1))
      continue;
    event e = event_at(block[i], AUDIT_RATE_LOSS, pid);
    e.sum = static_cast<uint64_t>(whole - counted);
    e.counted = block[i].counted;
    raise(a, std::move(e));
  }
}

// Residuals of the PCRs' times against the least-squares line over their positions, the block's
// begin among them.
void judge_accuracy(audit_ctx &a, clock_record &clock, intervals block, std::span<const double> k) {
  std::array<double, BLOCK_INTERVALS + 1> x = {}, t = {};
  for (size_t i = 0; i < block.size(); ++i) {
    x[i + 1] = x[i] + bytes(block[i]) + PACKET_BYTES * nearest(k[i]);
    t[i + 1] = t[i] + seconds(block[i]);
  }
  const size_t points = block.size() + 1;
  double mean_x = 0, mean_t = 0;
  for (size_t i = 0; i < points; ++i) {
    mean_x += x[i] / static_cast<double>(points);
    mean_t += t[i] / static_cast<double>(points);
  }
  double xx = 0, xt = 0;
  for (size_t i = 0; i < points; ++i) {
    xx += (x[i] - mean_x) * (x[i] - mean_x);
    xt += (x[i] - mean_x) * (t[i] - mean_t);
  }
  const double slope = xt / xx;
  double worst = 0;
  for (size_t i = 0; i < points; ++i) {
    const double ns = (t[i] - mean_t - slope * (x[i] - mean_x)) * 1e9;
    clock.least_ns = std::min(clock.least_ns, ns);
    clock.greatest_ns = std::max(clock.greatest_ns, ns);
    worst = std::max(worst, std::abs(ns));
    if (i != 0 && std::abs(ns) > std::abs(clock.worst_ns)) {
      clock.worst_ns = ns;
      clock.worst = block[i - 1];
    }
  }
  clock.blocks_beyond += worst > a.cfg.limits[AUDIT_PCR_ACCURACY_NS];
}

void judge_block(audit_ctx &a, clock_record &clock) {
  const intervals block = clock.block;
  const double rate = median_rate(block);
  deviations all;
  const std::span k(all.data(), block.size());
  for (size_t i = 0; i < block.size(); ++i) {
    k[i] = (rate * seconds(block[i]) - bytes(block[i])) / PACKET_BYTES;
    a.spread = std::max(a.spread, std::abs(k[i]));
  }
  clock.rate_min = clock.blocks == 0 ? rate : std::min(clock.rate_min, rate);
  clock.rate_max = std::max(clock.rate_max, rate);
  ++clock.blocks;
  if (is_constant(k)) {
    ++clock.constant_blocks;
    if (clock.pid == a.clock.master)
      judge_losses(a, clock.pid, block, k);
    judge_accuracy(a, clock, block, k);
  }
  clock.block.clear();
}

void raise_inaccuracy(audit_ctx &a, const clock_record &clock) {
  event e = event_at(clock.worst, AUDIT_PCR_ACCURACY, clock.pid);
  e.value = clock.worst_ns;
  e.count = clock.blocks_beyond;
  raise(a, std::move(e));
}

} // namespace

void take_rate_interval(audit_ctx &a, clock_record &clock, const pcr_step &step) {
  const uint64_t counted = a.lost - std::exchange(clock.lost_before, a.lost);
  const bool is_whole = std::exchange(clock.sync_losses_before, a.sync_losses) == a.sync_losses;
  if (!step.is_good || !is_whole)
    return;
  if (clock.block.size() == BLOCK_INTERVALS)
    clock.block.clear(); // memory was refused when it was judged
  clock.block.push_back({.d = step.d,
                         .packets = step.packets,
                         .counted = counted,
                         .packet = a.packet,
                         .offset = a.offset,
                         .time = now(a)});
  if (clock.block.size() == BLOCK_INTERVALS)
    judge_block(a, clock);
}

void judge_last_rates(audit_ctx &a) {
  for (clock_record *clock : a.clocks) {
    if (clock->block.size() >= LEAST_BLOCK)
      judge_block(a, *clock);
    if (clock->blocks_beyond != 0 && a.cfg.limits[AUDIT_PCR_ACCURACY_NS] != 0)
      raise_inaccuracy(a, *clock);
  }
}

int is_constant_rate(const audit_ctx &a) {
  bool has_block = false;
  for (const clock_record *clock : a.clocks) {
    if (clock->constant_blocks != clock->blocks ||
        clock->rate_max > clock->rate_min * (1 + RATE_TOLERANCE))
      return 0;
    has_block |= clock->blocks != 0;
  }
  return has_block ? 1 : -1;
}
