// What the page of a run begins with, whatever analyzed it.
#pragma once

#include <span>
#include <string_view>

#include "outputs/html_text.h"
#include "outputs/run_info.h"

// Everything up to the title; `kind` of report.
void put_head(html_text &page, const char *source, const char *kind);

// How the run ended, as a sentence.
void put_end(html_text &page, const run_result &result);

// Facts, within a list.
void put_fact(html_text &page, const char *name, std::string_view value);

// The options as they were typed, with quotes where a shell wants them; nothing when there are
// none.
void put_options(html_text &page, std::span<char *const> words);

// When the run was.
void put_date(html_text &page);

// "2 CC-LOSS, 1 PID-GAP. ": what was counted, by kind.
template <typename Kind>
void put_counts(html_text &page, std::span<const uint64_t> counts, const char *(*name_of)(Kind)) {
  const char *separator = "";
  for (size_t kind = 0; kind < counts.size(); ++kind) {
    if (counts[kind] == 0)
      continue;
    page.format("%s<span class=k>%s %s</span>", separator, grouped(counts[kind]).text,
                name_of(static_cast<Kind>(kind)));
    separator = ", ";
  }
  page.put(*separator != '\0' ? ". " : "");
}
