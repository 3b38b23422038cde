#include "outputs/baseline_writer.h"

#include <cinttypes>

#include "outputs/text_out.h"

namespace {

constexpr std::chrono::days GRACE{90};
constexpr auto NO_PID = static_cast<uint32_t>(-1);

// As a baseline reads it: text on one line.
void put_quoted(text_out &text, std::string_view value) {
  for (const char c : value) {
    if (c == '"' || c == '\\')
      text.format("\\%c", c);
    else
      text.put(static_cast<uint8_t>(c) < ' ' || c == 0x7F ? "?" : std::string_view(&c, 1));
  }
}

} // namespace

void baseline_writer::add(const found &finding, const allowed_finding *entry) {
  sum &of = sums[{finding.kind, static_cast<uint32_t>(finding.pid), entry ? entry->line : 0}];
  ++of.count;
  of.entry = entry;
}

void baseline_writer::put_entry(text_out &text, const key &what, const sum &of,
                                const char *capture) const {
  text.put("  { kind = \"");
  text.put(what.kind);
  text.put("\"; ");
  if (what.pid != NO_PID)
    text.format("pid = %" PRIu32 "; ", what.pid);
  text.format("most = %" PRIu64 "L;\n    reason = \"", of.count);
  if (of.entry) {
    put_quoted(text, of.entry->reason);
  } else {
    text.format("found on %s in ", text_of(today()).text);
    put_quoted(text, capture);
  }
  text.format(
      "\"; until = \"%s\"; }",
      text_of(of.entry ? of.entry->until : std::chrono::year_month_day(today() + GRACE)).text);
}

void baseline_writer::put(output_file &out, const char *capture) const {
  text_out text(out);
  text.put("# Findings that are allowed: why, and the last day (UTC) on which they are.\n"
           "allowed = (");
  const char *separator = "\n";
  for (const auto &[what, of] : sums) {
    text.put(separator);
    put_entry(text, what, of, capture);
    separator = ",\n";
  }
  text.put("\n);\n");
}
