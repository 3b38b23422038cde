// --junit: a run as a test suite, in the form that CI systems read.
#pragma once

#include <new>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "outputs/baseline.h"
#include "outputs/output_file.h"

// What a case can be: passed; failed, the capture is not as it should be; error, it could not all
// be looked at; skipped, there was nothing to look at.
enum class junit_state { passed, failed, error, skipped };

struct junit_case {
  std::string name;
  junit_state state = junit_state::passed;
  std::string message = {}; // why, unless it passed
  std::string places = {};  // of what failed, a line each
  std::string output = {};  // what else is to be told, a line each
};

struct junit_suite {
  const char *package; // "korva.checks"
  const char *source;  // tag of the capture
  std::vector<std::pair<const char *, std::string>> properties = {};
  std::vector<junit_case> cases = {};
};

// Where and when something was found, and what.
struct junit_place {
  double time; // s of stream time, or NAN
  int32_t pid; // -1: none
  uint64_t packet;
  std::string what;
  const allowed_finding *allowed; // by this entry of the baseline, or null
  bool fails;                     // the run, unless it is allowed
};

// Adds a place to a case: to what failed, or to what else is to be told.
void add_place(junit_case &to, const junit_place &place);

// Lets a case fail for `count` findings (or "alert"s); `to.places` has the first ones.
void fail_case(junit_case &to, uint64_t count, const char *thing, const char *meaning);

void junit_file(output_file &out, const junit_suite &suite);

// Makes a suite with `fill`, which may throw when memory is refused: then the suite is one error.
template <typename Fill> void junit_file(output_file &out, junit_suite suite, Fill fill) {
  try {
    fill(suite);
  } catch (const std::bad_alloc &) {
    suite.properties.clear();
    suite.cases.clear();
  }
  junit_file(out, suite);
}
