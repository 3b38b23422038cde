#include "outputs/report_plot.h"

#include <algorithm>
#include <cinttypes>
#include <cmath>

namespace {

enum : size_t { MIN_DRAWN = 12, HISTOGRAM_BARS = 48 };

// Values from `lo` to `hi`, both multiples of `step`.
struct value_axis {
  uint64_t lo, hi, step;
};

// The smallest of 1, 2, 5, 10, 20 ... that is at least `least`.
uint64_t nice_step(double least) {
  for (uint64_t decade = 1;; decade *= 10)
    for (const uint64_t step : {decade, 2 * decade, 5 * decade})
      if (static_cast<double>(step) >= least)
        return step;
}

uint64_t nice_time_step(uint64_t duration_ms) {
  constexpr uint64_t steps[] = {1,      2,       5,       10,      20,      50,
                                100,    200,     500,     1000,    2000,    5000,
                                10000,  20000,   30000,   60000,   120000,  300000,
                                600000, 1200000, 1800000, 3600000, 7200000, 14400000};
  for (const uint64_t step : steps)
    if (duration_ms / step <= 5)
      return step;
  return nice_step(static_cast<double>(duration_ms) / 5 / 3'600'000) * 3'600'000;
}

// Room for all values; but a few that lie far beyond the others (clocks that jump) are cut off.
value_axis values_of(const series &s, size_t limit_ms) {
  const uint64_t usual = std::max<uint64_t>(s.values.percentile(99), 1);
  uint64_t top = s.sum.max <= 40 * usual ? s.sum.max : 10 * usual;
  uint64_t bottom = s.sum.min * 2 > top ? s.sum.min : 0;
  if (limit_ms != 0 && limit_ms <= 2 * top) {
    top = std::max<uint64_t>(top, limit_ms);
    bottom = std::min<uint64_t>(bottom, limit_ms);
  }
  const uint64_t step = nice_step(static_cast<double>(std::max<uint64_t>(top - bottom, 1)) / 4);
  return {bottom / step * step, (top / step + 1) * step, step};
}

// Neighbours are merged until they fit, and until nearly each bucket within the series has a value:
// what is left empty is a gap of the stream, not of the drawing.
size_t merge_for_drawing(std::vector<bucket> &buckets, size_t max_buckets) {
  size_t merged = 1;
  const auto is_sparse = [&] {
    const auto empty = std::ranges::count(buckets, 0u, &bucket::count);
    return static_cast<size_t>(empty) * 8 > buckets.size();
  };
  while (buckets.size() > max_buckets || (buckets.size() > MIN_DRAWN && is_sparse())) {
    merge_neighbours(buckets);
    merged *= 2;
  }
  return merged;
}

double average(const bucket &b) {
  return static_cast<double>(b.total) / static_cast<double>(b.count);
}

// The outline of one run of buckets from minimum to maximum, [begin, end).
void put_band(html_text &page, const std::vector<bucket> &b, size_t begin, size_t end) {
  page.put("M%zu-%u", begin, b[begin].max);
  for (size_t i = begin; i < end; ++i)
    page.put(i == begin ? "h1" : "V-%uh1", b[i].max);
  for (size_t i = end; i-- > begin;)
    page.put("V-%uh-1", b[i].min);
  page.put("z");
}

void put_average(html_text &page, const std::vector<bucket> &b, size_t begin, size_t end) {
  page.put("M%zu-%.2fh1", begin, average(b[begin]));
  for (size_t i = begin + 1; i < end; ++i)
    page.put("V-%.2fh1", average(b[i]));
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

void put_value_labels(html_text &page, const value_axis &y) {
  page.put("<div class=y aria-hidden=true>");
  for (uint64_t value = y.lo; value <= y.hi; value += y.step)
    page.put("<span style=bottom:%.2f%%>%" PRIu64 "</span>",
             100.0 * static_cast<double>(value - y.lo) / static_cast<double>(y.hi - y.lo), value);
  page.put("</div>");
}

void put_curve(html_text &page, const time_axis &axis, const series &s, size_t limit_ms,
               const value_axis &y, size_t max_buckets) {
  std::vector<bucket> buckets = s.buckets;
  const size_t merged = merge_for_drawing(buckets, max_buckets);
  const size_t n = axis.buckets(merged);
  page.put("<div class=curve>");
  put_value_labels(page, y);
  page.put("<svg role=img preserveAspectRatio=none viewBox=\"0 -%" PRIu64 " %zu %" PRIu64
           "\" data-pid=%u data-kind=%d data-bucket=%" PRIu64 "><path class=grid d=\"",
           y.hi, n, y.hi - y.lo, s.pid, static_cast<int>(s.kind), axis.width * merged);
  for (uint64_t value = y.lo; value <= y.hi; value += y.step)
    page.put("M0-%" PRIu64 "h%zu", value, n);
  page.put("\"/><path class=band d=\"");
  for_each_run(page, buckets, put_band);
  page.put("\"/><path class=avg d=\"");
  for_each_run(page, buckets, put_average);
  page.put("\"/>");
  if (limit_ms >= y.lo && limit_ms <= y.hi && limit_ms != 0)
    page.put("<path class=limit d=\"M0-%zuh%zu\"/>", limit_ms, n);
  if (s.sum.max > y.hi) {
    page.put("<path class=cut d=\"");
    for (size_t i = 0; i < buckets.size(); ++i)
      if (buckets[i].max > y.hi)
        page.put("M%zu.5-%" PRIu64 "v%.2f", i, y.hi, static_cast<double>(y.hi - y.lo) / 12);
    page.put("\"/>");
  }
  page.put("</svg>");
  put_time_labels(page, axis, merged);
  page.put("</div>");
}

// Bars of equal width from the least value on; their step is not finer than what is known.
void put_histogram(html_text &page, const series &s, const value_axis &y) {
  const uint64_t hi = std::min<uint64_t>(s.sum.max, y.hi);
  uint32_t step = 1;
  while ((hi - s.sum.min) / step >= HISTOGRAM_BARS || hi / step >= 256)
    step *= 2;
  const size_t first = s.sum.min / step, last = hi / step;
  const std::vector<uint64_t> bars = s.values.steps(step, last + 1);
  const uint64_t most = std::max<uint64_t>(*std::ranges::max_element(bars), 1);
  page.put("<div class=histo><svg role=img preserveAspectRatio=none viewBox=\"%zu -1 %zu 1\" "
           "data-step=%u data-most=%" PRIu64 "><path class=bars d=\"",
           first, last - first + 1, step, most);
  for (size_t i = first; i <= last; ++i)
    if (bars[i] != 0)
      page.put("M%zu 0v-%.4fh1V0z", i, static_cast<double>(bars[i]) / static_cast<double>(most));
  page.put("\"/></svg><div class=x><span style=left:0>%zu</span>"
           "<span style=left:100%%>%zu ms</span></div></div>",
           first * step, (last + 1) * step);
}

void put_number(html_text &page, const char *name, const std::string &value) {
  page.put("<div><dt>%s<dd>%s</div>", name, value.c_str());
}

std::string fixed2(double value) {
  char out[32];
  snprintf(out, sizeof out, "%.2f", value);
  return out;
}

void put_numbers(html_text &page, const series &s, size_t limit_ms) {
  page.put("<dl class=numbers>");
  put_number(page, "min", grouped(s.sum.min));
  put_number(page, "avg",
             fixed2(static_cast<double>(s.sum.total) / static_cast<double>(s.sum.count)));
  for (const auto &[name, percent] : {std::pair{"p50", 50.0}, {"p95", 95.0}, {"p99", 99.0}})
    put_number(page, name, grouped(std::min<uint64_t>(s.values.percentile(percent), s.sum.max)));
  put_number(page, "max", grouped(s.sum.max));
  put_number(page, "values", grouped(s.sum.count));
  put_number(page, "limit", limit_ms != 0 ? grouped(limit_ms) : "none");
  page.put("</dl>");
}

} // namespace

std::string axis_text(const time_axis &axis, uint64_t at) {
  return axis.in_packets ? grouped(at + 1) : clock_text(at, true);
}

void put_time_labels(html_text &page, const time_axis &axis, size_t merged) {
  const auto length = static_cast<double>(axis.buckets(merged) * axis.width * merged);
  const uint64_t step =
      axis.in_packets ? nice_step(length / 5) : nice_time_step(static_cast<uint64_t>(length));
  page.put("<div class=x aria-hidden=true>");
  for (uint64_t at = 0; static_cast<double>(at) <= length * 0.97; at += step)
    page.put("<span style=left:%.2f%%>%s</span>", 100 * static_cast<double>(at) / length,
             (axis.in_packets ? grouped(at) : clock_text(at, step < 1000)).c_str());
  page.put("</div>");
}

void put_strip(html_text &page, const time_axis &axis, const alert_row &row, size_t merged) {
  std::vector<uint32_t> buckets = row.buckets;
  for (size_t n = 1; n < merged; n *= 2)
    merge_neighbours(buckets);
  page.put("<svg class=strip role=img preserveAspectRatio=none viewBox=\"0 0 %zu 1\" data-pid=%u "
           "data-alert=\"%s\" data-bucket=%" PRIu64 "><path d=\"",
           axis.buckets(merged), row.pid, tsan_alert_name(row.kind), axis.width * merged);
  for (size_t i = 0; i < buckets.size(); ++i)
    if (buckets[i] != 0)
      page.put("M%zu.5 0v1", i);
  page.put("\"/></svg>");
}

void put_plot(html_text &page, const time_axis &axis, const series &s, size_t limit_ms,
              size_t max_buckets) {
  const value_axis y = values_of(s, limit_ms);
  put_numbers(page, s, limit_ms);
  page.put("<div class=plot>");
  put_curve(page, axis, s, limit_ms, y, max_buckets);
  put_histogram(page, s, y);
  page.put("</div>");
  if (s.sum.max > y.hi)
    page.put("<p class=note>Values above %s ms are cut off, with a mark at the upper edge.</p>",
             grouped(y.hi).c_str());
}
