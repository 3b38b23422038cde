// The pictures of a report. Their SVG is drawn in the values themselves (x in stretches of time, y
// as the series has it), stretched to the width that the page gives them; all text beside them is
// HTML, which keeps its size.
#pragma once

#include "outputs/html_text.h"
#include "outputs/series.h"

// The axis that all plots over stream time share, from 0 to its length.
struct time_axis {
  bool in_packets;
  uint64_t width;  // of a bucket, ms or packets
  uint64_t length; // the same; not 0
};

// "2:03.400" or "1 234".
short_text axis_text(const time_axis &axis, uint64_t at);

// The labels below a plot.
void put_time_labels(html_text &page, const time_axis &axis);

// What the whole numbers of a series stand for: so many of them are one.
struct value_unit {
  const char *name = "ms";
  int64_t parts = 1;
};

// What a picture shows, for who cannot see it, and for tests.
struct picture {
  const char *name;
  uint32_t pid;
  int kind;
  value_unit unit = {};
};

// A strip with a mark at the first of each stretch of time that has one; at most `max_marks`.
void put_strip(html_text &page, const time_axis &axis, const picture &what,
               const std::vector<mark> &marks, size_t max_marks);

// Least, average and greatest over time, and how often each value came. `limit`: the threshold, as
// the values of the series; 0 = none. At most `max_buckets` are drawn.
void put_plot(html_text &page, const time_axis &axis, const picture &what, const series &s,
              size_t limit, size_t max_buckets);

// The same over time, from 0 on, in one line without labels.
void put_spark(html_text &page, const time_axis &axis, const picture &what, const series &s,
               size_t max_buckets);

// A value of a series, "1 234.5"; and its average.
short_text value_text(int64_t value, const value_unit &unit);
short_text average_text(const measure_sum &sum, const value_unit &unit);
