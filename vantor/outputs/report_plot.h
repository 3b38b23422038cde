// The pictures of a report. Their SVG is drawn in the values themselves (x in stretches of time, y
// in ms), stretched to the width that the page gives them; all text beside them is HTML, which
// keeps its size.
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

// What a picture shows, for who cannot see it, and for tests.
struct picture {
  const char *name;
  int program;
  uint32_t pid;
  int kind;
};

// A strip with a mark at the first of each stretch of time that has one; at most `max_marks`.
void put_strip(html_text &page, const time_axis &axis, const picture &what,
               const std::vector<mark> &marks, size_t max_marks);

// Least, average and greatest over time, and how often each value came. `limit_ms`: the threshold,
// 0 = none. At most `max_buckets` are drawn.
void put_plot(html_text &page, const time_axis &axis, const picture &what, const series &s,
              size_t limit_ms, size_t max_buckets);
