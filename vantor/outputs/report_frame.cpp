#include "outputs/report_frame.h"

#include <cstring>
#include <ctime>

#include "outputs/report_style.h"

namespace {

enum : size_t { MAX_WORDS = 2'000 }; // bytes of the command line

} // namespace

void put_head(html_text &page, const char *source, const char *kind) {
  page.put("<!doctype html>\n<html lang=en><head><meta charset=utf-8>"
           "<meta name=viewport content=\"width=device-width,initial-scale=1\"><title>korva: ");
  page.put_escaped(source);
  page.put("</title><style>");
  page.put(report_style);
  page.put("</style></head>\n<body><main><p class=kicker>korva · ");
  page.put(kind);
  page.put("</p><h1>");
  page.put_escaped(source);
  page.put("</h1>");
}

void put_end(html_text &page, const run_result &result) {
  switch (result.end) {
  case run_end::complete:
    return page.put("The file was read to its end.");
  case run_end::limit:
    return page.put("The run ended at the number of packets asked for.");
  case run_end::signal:
    return page.put("A signal ended the run before the end of the file.");
  case run_end::stopped:
    return page.put("The run ended before the end of the file.");
  case run_end::cannot_open:
    return page.format("The file cannot be opened: %s.", strerror(result.file_errno));
  case run_end::read_failed:
    return page.format("Reading failed after %s bytes: %s.", grouped(result.bytes).text,
                       strerror(result.file_errno));
  default:
    return page.put("The run failed before the first packet.");
  }
}

void put_fact(html_text &page, const char *name, std::string_view value) {
  page.format("<div><dt>%s<dd>", name);
  page.put_escaped(value);
  page.put("</div>");
}

void put_options(html_text &page, std::span<char *const> words) {
  if (words.empty())
    return;
  page.put("<div><dt>Options<dd><code>");
  size_t left = MAX_WORDS;
  const char *separator = "";
  for (const char *word : words) {
    std::string_view text = word;
    const bool is_cut = text.size() > left;
    text = text.substr(0, left);
    left -= text.size();
    const bool is_plain =
        !text.empty() && text.find_first_of(" \t\n\"'\\$`;&|<>()*?[]#~!{}") == text.npos;
    page.put(separator);
    separator = " ";
    page.put(is_plain ? "" : "&#39;");
    page.put_escaped(text);
    page.put(is_plain ? "" : "&#39;");
    if (is_cut)
      page.put("\u2026");
    if (left == 0)
      break;
  }
  page.put("</code></div>");
}

void put_date(html_text &page) {
  const time_t now = time(nullptr);
  tm local = {};
  char text[64] = {};
  if (localtime_r(&now, &local))
    strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S %Z", &local);
  put_fact(page, "Checked", text);
}
