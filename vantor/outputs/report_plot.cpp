#include "outputs/report_plot.h"

#include <algorithm>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace {

enum : size_t { MIN_DRAWN = 12, HISTOGRAM_BARS = 48 };

// Values from `lo` to `hi`, both multiples of `step`.
struct value_axis {
  int64_t lo, hi, step;
};

// The smallest of 1, 2, 5, 10, 20 ... that is at least `least`.
int64_t nice_step(double least) {
  for (int64_t decade = 1;; decade *= 10)
    for (const int64_t step : {decade, 2 * decade, 5 * decade})
      if (static_cast<double>(step) >= least)
        return step;
}

uint64_t nice_time_step(uint64_t length_ms) {
  constexpr uint64_t steps[] = {1,      2,       5,       10,      20,      50,
                                100,    200,     500,     1000,    2000,    5000,
                                10000,  20000,   30000,   60000,   120000,  300000,
                                600000, 1200000, 1800000, 3600000, 7200000, 14400000};
  for (const uint64_t step : steps)
    if (length_ms / step <= 5)
      return step;
  return static_cast<uint64_t>(nice_step(static_cast<double>(length_ms) / 5 / 3'600'000)) *
         3'600'000;
}

// The multiple of `step` at or below `value`.
int64_t floor_to(int64_t value, int64_t step) {
  const int64_t rest = value % step;
  return value - (rest < 0 ? rest + step : rest);
}

// Room for all values; but a few that lie far beyond the others (clocks that jump) are cut off.
value_axis values_of(const series &s, int64_t limit) {
  const int64_t usual =
      std::max({std::abs(s.values.percentile(99)), std::abs(s.values.percentile(1)), int64_t{1}});
  const auto cut = [&](int64_t ms) {
    return std::abs(ms) <= 40 * usual ? ms : ms < 0 ? -10 * usual : 10 * usual;
  };
  int64_t top = cut(s.sum.max), bottom = cut(s.sum.min);
  if (bottom > 0 && bottom * 2 <= top)
    bottom = 0;
  if (top < 0 && top * 2 >= bottom)
    top = 0;
  if (limit != 0 && limit <= 2 * std::max(std::abs(top), std::abs(bottom))) {
    if (top > 0) {
      bottom = std::min(bottom, limit);
      top = std::max(top, limit);
    }
    if (bottom < 0)
      bottom = std::min(bottom, -limit);
  }
  const int64_t step = nice_step(static_cast<double>(std::max<int64_t>(top - bottom, 1)) / 4);
  return {floor_to(bottom, step), floor_to(top, step) + step, step};
}

// Neighbours are merged until they fit, and until nearly each bucket within the series has a value:
// what is left empty is a gap of the stream, not of the drawing.
uint64_t merge_for_drawing(std::vector<bucket> &buckets, uint64_t width, size_t max_buckets) {
  const auto is_sparse = [&] {
    const auto empty = std::ranges::count(buckets, 0u, &bucket::count);
    return static_cast<size_t>(empty) * 8 > buckets.size();
  };
  while (buckets.size() > max_buckets || (buckets.size() > MIN_DRAWN && is_sparse())) {
    merge_neighbours(buckets);
    width *= 2;
  }
  return width;
}

double average(const bucket &b) {
  return static_cast<double>(b.total) / static_cast<double>(b.count);
}

// Levels of width 1 each: "-40h3V-41h1" to the right, "-40h-3V-41h-1" to the left.
template <typename Level>
void put_levels(html_text &page, size_t n, const char *sign, Level level_of) {
  for (size_t i = 0, next = 0; i < n; i = next) {
    const short_text level = level_of(i);
    while (next < n && strcmp(level_of(next).text, level.text) == 0)
      ++next;
    page.format("%s%sh%s%zu", i != 0 ? "V" : "", level.text, sign, next - i);
  }
}

// The outline of one run of buckets from least to greatest, [begin, end). Greater values lie above,
// where SVG counts down.
void put_band(html_text &page, const std::vector<bucket> &b, size_t begin, size_t end) {
  const auto level = [](int32_t value) {
    short_text out;
    snprintf(out.text, sizeof out.text, "%d", -value);
    return out;
  };
  page.format("M%zu ", begin);
  put_levels(page, end - begin, "", [&](size_t i) { return level(b[begin + i].max); });
  page.put("V");
  put_levels(page, end - begin, "-", [&](size_t i) { return level(b[end - 1 - i].min); });
  page.put("z");
}

void put_average(html_text &page, const std::vector<bucket> &b, size_t begin, size_t end) {
  page.format("M%zu ", begin);
  put_levels(page, end - begin, "", [&](size_t i) {
    short_text out;
    snprintf(out.text, sizeof out.text, "%.2f", 0 - average(b[begin + i]));
    return out;
  });
}

template <typename Put>
void for_each_run(html_text &page, const std::vector<bucket> &b, Put put_run) {
  for (size_t begin = 0; begin < b.size();) {
    size_t end = begin;
    while (end < b.size() && b[end].count != 0)
      ++end;
    if (end > begin)
      put_run(page, b, begin, end);
    begin = end + 1;
  }
}

void put_value_labels(html_text &page, const value_axis &y, const value_unit &unit) {
  page.put("<div class=y aria-hidden=true>");
  for (int64_t value = y.lo; value <= y.hi; value += y.step)
    page.format("<span style=bottom:%.2f%%>%s</span>",
                100.0 * static_cast<double>(value - y.lo) / static_cast<double>(y.hi - y.lo),
                value_text(value, unit).text);
  page.put("</div>");
}

// Marks at an edge behind which values are not drawn.
template <typename Beyond>
void put_cuts(html_text &page, const std::vector<bucket> &buckets, int64_t edge, double length,
              Beyond is_beyond) {
  for (size_t i = 0; i < buckets.size(); ++i)
    if (buckets[i].count != 0 && is_beyond(buckets[i]))
      page.format("M%zu.5 %" PRId64 "v%.2f", i, -edge, length);
}

void put_limit(html_text &page, const value_axis &y, int64_t limit, double n) {
  if (limit != 0 && limit >= y.lo && limit <= y.hi)
    page.format("<path class=limit d=\"M0 %" PRId64 "h%.3f\"/>", -limit, n);
}

// What it shows, for who cannot see it.
void put_alternative(html_text &page, const picture &what, const measure_sum &sum) {
  page.format(
      "role=img aria-label=\"%s of PID %u over time: least %s, average %s, greatest %s %s\"",
      what.name, what.pid, value_text(sum.min, what.unit).text, average_text(sum, what.unit).text,
      value_text(sum.max, what.unit).text, what.unit.name);
}

void put_curve(html_text &page, const time_axis &axis, const picture &what, const series &s,
               int64_t limit, const value_axis &y, size_t max_buckets) {
  std::vector<bucket> buckets = s.buckets;
  const uint64_t width = merge_for_drawing(buckets, axis.width, max_buckets);
  const double n = static_cast<double>(axis.length) / static_cast<double>(width);
  const int64_t height = y.hi - y.lo;
  page.put("<div class=curve>");
  put_value_labels(page, y, what.unit);
  page.put("<svg ");
  put_alternative(page, what, s.sum);
  page.format(" preserveAspectRatio=none viewBox=\"0 %" PRId64 " %.3f %" PRId64
              "\" data-pid=%u data-kind=%d data-bucket=%" PRIu64 "><path class=grid d=\"",
              -y.hi, n, height, what.pid, what.kind, width);
  for (int64_t value = y.lo; value <= y.hi; value += y.step)
    page.format("M0 %" PRId64 "h%.3f", -value, n);
  page.put("\"/><path class=band d=\"");
  for_each_run(page, buckets, put_band);
  page.put("\"/><path class=avg d=\"");
  for_each_run(page, buckets, put_average);
  page.put("\"/>");
  put_limit(page, y, limit, n);
  if (y.lo < 0)
    put_limit(page, y, -limit, n);
  page.put("<path class=cut d=\"");
  const double mark_length = static_cast<double>(height) / 12;
  put_cuts(page, buckets, y.hi, mark_length, [&](const bucket &b) { return b.max > y.hi; });
  put_cuts(page, buckets, y.lo, -mark_length, [&](const bucket &b) { return b.min < y.lo; });
  page.put("\"/></svg>");
  put_time_labels(page, axis);
  page.put("</div>");
}

// Bars of equal width from the least value on; their step is not finer than what is known.
void put_histogram(html_text &page, const picture &what, const series &s, const value_axis &y) {
  const int64_t lo = std::max(s.sum.min, y.lo), hi = std::min(s.sum.max, y.hi);
  int64_t step = 1;
  const auto bars_from = [&] { return floor_to(lo, step); };
  const auto bars_of = [&] { return static_cast<size_t>((hi - bars_from()) / step) + 1; };
  while (bars_of() > HISTOGRAM_BARS || std::max(std::abs(lo), std::abs(hi)) / step >= 256)
    step *= 2;
  const int64_t first = bars_from();
  const std::vector<uint64_t> bars = s.values.steps(first, static_cast<uint32_t>(step), bars_of());
  const uint64_t most = std::max<uint64_t>(*std::ranges::max_element(bars), 1);
  page.format("<div class=histo><svg role=img aria-label=\"How often each %s came\" "
              "preserveAspectRatio=none viewBox=\"%" PRId64 " -1 %zu 1\" "
              "data-step=%" PRId64 " data-most=%" PRIu64 "><path class=bars d=\"",
              what.name, first / step, bars.size(), step, most);
  for (size_t i = 0; i < bars.size(); ++i)
    if (bars[i] != 0)
      page.format("M%" PRId64 " 0v-%.4fh1V0z", first / step + static_cast<int64_t>(i),
                  static_cast<double>(bars[i]) / static_cast<double>(most));
  page.format("\"/></svg><div class=x><span style=left:0>%s</span>"
              "<span style=left:100%%>%s %s</span></div></div>",
              value_text(first, what.unit).text,
              value_text(first + static_cast<int64_t>(bars.size()) * step, what.unit).text,
              what.unit.name);
}

void put_number(html_text &page, const char *name, const short_text &value) {
  page.format("<div><dt>%s<dd>%s</div>", name, value.text);
}

void put_numbers(html_text &page, const series &s, const value_unit &unit, int64_t limit) {
  page.put("<dl class=numbers>");
  put_number(page, "min", value_text(s.sum.min, unit));
  put_number(page, "avg", average_text(s.sum, unit));
  for (const auto &[name, percent] : {std::pair{"p50", 50.0}, {"p95", 95.0}, {"p99", 99.0}})
    put_number(page, name, value_text(std::min(s.values.percentile(percent), s.sum.max), unit));
  put_number(page, "max", value_text(s.sum.max, unit));
  put_number(page, "values", grouped(s.sum.count));
  put_number(page, "limit", limit != 0 ? value_text(limit, unit) : short_text{"none"});
  page.put("</dl>");
}

// Marks in three or more buckets side by side are one stretch, for lines would let paper through.
size_t end_of_stretch(const std::vector<mark> &marks, size_t begin) {
  size_t end = begin;
  while (end < marks.size() && marks[end] != 0)
    ++end;
  return end - begin >= 3 ? end : begin + 1;
}

// From the foot of its first mark to that of its last, as high as they are with the width of its
// line.
void put_stretch(html_text &page, mark length) {
  page.format("m0-.08h%" PRIu64 "v-.84h-%" PRIu64 "v.84m%" PRIu64 " .08", length, length, length);
}

} // namespace

short_text value_text(int64_t value, const value_unit &unit) {
  const auto size = static_cast<uint64_t>(std::abs(value)),
             parts = static_cast<uint64_t>(unit.parts);
  short_text out;
  char *to = stpcpy(stpcpy(out.text, value < 0 ? "\u2212" : ""), grouped(size / parts).text);
  uint64_t rest = size % parts;
  if (rest != 0)
    *to++ = '.';
  for (; rest != 0; rest = rest * 10 % parts)
    *to++ = static_cast<char>('0' + rest * 10 / parts);
  *to = '\0';
  return out;
}

short_text average_text(const measure_sum &sum, const value_unit &unit) {
  const double value = sum.average() / static_cast<double>(unit.parts);
  short_text out;
  snprintf(out.text, sizeof out.text, "%s%.2f", value < 0 ? "\u2212" : "", std::abs(value));
  return out;
}

short_text axis_text(const time_axis &axis, uint64_t at) {
  return axis.in_packets ? grouped(at) : clock_text(at, true);
}

void put_time_labels(html_text &page, const time_axis &axis) {
  const auto length = static_cast<double>(axis.length);
  const uint64_t step =
      axis.in_packets ? static_cast<uint64_t>(nice_step(length / 5)) : nice_time_step(axis.length);
  page.put("<div class=x aria-hidden=true>");
  for (uint64_t at = 0; static_cast<double>(at) <= length * 0.97; at += step)
    page.format("<span style=left:%.2f%%>%s</span>", 100 * static_cast<double>(at) / length,
                (axis.in_packets ? grouped(at) : clock_text(at, step < 1000)).text);
  page.put("</div>");
}

void put_strip(html_text &page, const time_axis &axis, const picture &what,
               const std::vector<mark> &marks, size_t max_marks) {
  std::vector<mark> drawn = marks;
  while (drawn.size() > max_marks)
    merge_neighbours(drawn);
  page.format("<svg class=strip role=img aria-label=\"%s over time\" preserveAspectRatio=none "
              "viewBox=\"0 0 %" PRIu64 " 1\" data-pid=%u data-alert=\"%s\"><path d=\"",
              what.name, axis.length, what.pid, what.name);
  mark last = 0;
  for (size_t i = 0; i < drawn.size(); ++i) {
    if (drawn[i] == 0)
      continue;
    page.format(last == 0 ? "M%" PRIu64 " 0v1" : "m%" PRIu64 "-1v1",
                drawn[i] - std::max<mark>(last, 1));
    const mark begin = drawn[i];
    i = end_of_stretch(drawn, i) - 1;
    last = drawn[i];
    if (last != begin)
      put_stretch(page, last - begin);
  }
  page.put("\"/></svg>");
}

void put_plot(html_text &page, const time_axis &axis, const picture &what, const series &s,
              size_t limit, size_t max_buckets) {
  const auto threshold = static_cast<int64_t>(std::min<size_t>(limit, INT64_MAX));
  const value_axis y = values_of(s, threshold);
  put_numbers(page, s, what.unit, threshold);
  page.put("<div class=plot>");
  put_curve(page, axis, what, s, threshold, y, max_buckets);
  put_histogram(page, what, s, y);
  page.put("</div>");
  if (s.sum.max > y.hi || s.sum.min < y.lo)
    page.format(
        "<p class=note>Values beyond %s and %s %s are cut off, with a mark at the edge.</p>",
        value_text(y.lo, what.unit).text, value_text(y.hi, what.unit).text, what.unit.name);
}

void put_spark(html_text &page, const time_axis &axis, const picture &what, const series &s,
               size_t max_buckets) {
  std::vector<bucket> buckets = s.buckets;
  const uint64_t width = merge_for_drawing(buckets, axis.width, max_buckets);
  const int64_t top = std::max<int64_t>(s.sum.max + s.sum.max / 16, 1);
  page.put("<svg class=spark ");
  put_alternative(page, what, s.sum);
  page.format(" preserveAspectRatio=none viewBox=\"0 %" PRId64 " %.3f %" PRId64
              "\"><path class=band d=\"",
              -top, static_cast<double>(axis.length) / static_cast<double>(width), top);
  for_each_run(page, buckets, put_band);
  page.put("\"/><path class=avg d=\"");
  for_each_run(page, buckets, put_average);
  page.put("\"/></svg>");
}
