// The pictures of the report. Their SVG is drawn in the values themselves (x in buckets, y in ms),
// stretched to the width that the page gives them; all text beside them is HTML, which keeps its
// size.
#pragma once

#include "outputs/html_text.h"
#include "outputs/report_data.h"

// The axis that all plots over stream time share.
struct time_axis {
  bool in_packets;
  uint64_t width;    // of a bucket, ms or packets
  uint64_t duration; // the same

  // Buckets that the axis is long, of `merged` neighbours each.
  size_t buckets(size_t merged = 1) const {
    return static_cast<size_t>(duration / (width * merged)) + 1;
  }
};

// "2:03.400" or "packet 1 234".
std::string axis_text(const time_axis &axis, uint64_t at);

// The labels below a plot whose buckets hold `merged` neighbours.
void put_time_labels(html_text &page, const time_axis &axis, size_t merged);

// A strip with a mark in each bucket that has an alert; `merged` is a power of 2.
void put_strip(html_text &page, const time_axis &axis, const alert_row &row, size_t merged);

// Minimum, average and maximum over time, and how often each value came. `limit_ms`: the threshold,
// 0 = none. At most `max_buckets` are drawn.
void put_plot(html_text &page, const time_axis &axis, const series &s, size_t limit_ms,
              size_t max_buckets);
