#include "outputs/junit.h"

#include <algorithm>
#include <cinttypes>

#include "outputs/audit_words.h"
#include "outputs/html_text.h"

namespace {

enum : size_t { MOST_PLACES = 10 }; // of a case, of each sort

size_t lines_of(const std::string &text) {
  return static_cast<size_t>(std::ranges::count(text, '\n'));
}

std::string line_of(const junit_place &place) {
  std::string line = clock_time(place.time, 1, "-");
  if (place.pid >= 0)
    line += text(" PID %d", place.pid);
  line += text(" packet %" PRIu64, place.packet);
  if (!place.what.empty())
    line += ": " + place.what;
  return line + "\n";
}

size_t count(const junit_suite &suite, junit_state state) {
  return static_cast<size_t>(std::ranges::count(suite.cases, state, &junit_case::state));
}

void put_attribute(html_text &out, const char *name, std::string_view value) {
  out.format(" %s=\"", name);
  out.put_escaped(value);
  out.put("\"");
}

// Foreign text does not begin a line of its own.
void put_lines(html_text &out, std::string_view lines) {
  for (size_t end; (end = lines.find('\n')) != std::string_view::npos;) {
    out.put_escaped(lines.substr(0, end));
    out.put("\n");
    lines.remove_prefix(end + 1);
  }
}

// CI systems take the part behind the last dot for the name of a class.
void put_class(html_text &out, const junit_suite &suite) {
  std::string_view rest = suite.source;
  out.format(" classname=\"%s.", suite.package);
  for (size_t dot; (dot = rest.find('.')) != std::string_view::npos;) {
    out.put_escaped(rest.substr(0, dot));
    out.put("_");
    rest.remove_prefix(dot + 1);
  }
  out.put_escaped(rest);
  out.put("\"");
}

void put_result(html_text &out, const junit_case &c) {
  constexpr const char *elements[] = {nullptr, "failure", "error", "skipped"};
  const char *element = elements[static_cast<size_t>(c.state)];
  if (!element)
    return;
  out.format("      <%s", element);
  if (c.state != junit_state::skipped)
    put_attribute(out, "type", c.name);
  put_attribute(out, "message", c.message);
  out.put(">");
  put_lines(out, c.places);
  out.format("</%s>\n", element);
}

void put_case(html_text &out, const junit_suite &suite, const junit_case &c) {
  out.put("    <testcase");
  put_attribute(out, "name", c.name);
  put_class(out, suite);
  out.put(">\n");
  put_result(out, c);
  if (!c.output.empty()) {
    out.put("      <system-out>");
    put_lines(out, c.output);
    out.put("</system-out>\n");
  }
  out.put("    </testcase>\n");
}

void put_counts(html_text &out, const junit_suite &suite) {
  out.format(" tests=\"%zu\" failures=\"%zu\" errors=\"%zu\"", suite.cases.size(),
             count(suite, junit_state::failed), count(suite, junit_state::error));
}

void put_properties(html_text &out, const junit_suite &suite) {
  out.put("    <properties>\n");
  for (const auto &[name, value] : suite.properties) {
    out.put("      <property");
    put_attribute(out, "name", name);
    put_attribute(out, "value", value);
    out.put("/>\n");
  }
  out.put("    </properties>\n");
}

// What stands for cases that there was no memory for.
constexpr std::string_view no_memory =
    R"(<?xml version="1.0" encoding="UTF-8"?>
<testsuites tests="1" failures="0" errors="1">
  <testsuite name="korva" tests="1" failures="0" errors="1" skipped="0">
    <testcase name="capture" classname="korva">
      <error type="capture" message="memory was refused: nothing is known of the checks"></error>
    </testcase>
  </testsuite>
</testsuites>
)";

} // namespace

void add_place(junit_case &to, const junit_place &place) {
  std::string &lines = place.allowed || !place.fails ? to.output : to.places;
  if (lines_of(lines) >= MOST_PLACES)
    return;
  std::string line = line_of(place);
  if (place.allowed)
    line.insert(line.size() - 1, ", " + allowed_text(*place.allowed));
  lines += line;
}

void fail_case(junit_case &to, uint64_t count, const char *thing, const char *meaning) {
  to.state = junit_state::failed;
  to.message = counted(count, thing);
  if (*meaning != '\0')
    to.message += std::string(", ") + meaning;
  const size_t told = lines_of(to.places);
  if (told == 0)
    return;
  to.message += "; first: " + to.places.substr(0, to.places.find('\n'));
  if (count > told)
    to.places += "and " + std::to_string(count - told) + " more\n";
}

void junit_file(output_file &file, const junit_suite &suite) {
  html_text out(file);
  if (suite.cases.empty())
    return out.put(no_memory);
  out.put("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuites");
  put_counts(out, suite);
  out.put(">\n  <testsuite");
  put_attribute(out, "name", suite.source);
  put_counts(out, suite);
  out.format(" skipped=\"%zu\">\n", count(suite, junit_state::skipped));
  put_properties(out, suite);
  for (const junit_case &c : suite.cases)
    put_case(out, suite, c);
  out.put("  </testsuite>\n</testsuites>\n");
}
