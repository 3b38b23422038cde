#include "outputs/baseline.h"

#include <algorithm>
#include <cstdio>
#include <numeric>

#include "outputs/json_text.h"

namespace {

// A finding without a time lies in no stretch of it.
bool fits(const allowed_finding &entry, const found &f) {
  const bool in_time = !entry.has_times() || (f.time >= entry.from && f.last_time <= entry.to);
  return entry.kind == f.kind && (entry.pid < 0 || entry.pid == f.pid) &&
         (entry.program_number < 0 || entry.program_number == f.program_number) && in_time;
}

bool is_unused(const allowed_finding &entry) {
  return !entry.is_expired && entry.used == 0;
}

bool is_expired(const allowed_finding &entry) {
  return entry.is_expired;
}

void tell(FILE *out, const char *path, const allowed_finding &entry, const char *what) {
  fprintf(out, "%s:%d: %s: %s", path, entry.line, what, entry.kind.c_str());
  if (entry.pid >= 0)
    fprintf(out, " on PID %d", entry.pid);
  fprintf(out, ", until %s: %s\n", text_of(entry.until).text, entry.reason.c_str());
}

void put_entries(json_text &r, const char *key, const std::vector<allowed_finding> &entries,
                 bool (*is_told)(const allowed_finding &)) {
  r.begin_array(key);
  for (const allowed_finding &entry : entries) {
    if (!is_told(entry))
      continue;
    r.begin_object();
    r.field("line", entry.line);
    r.field("kind", entry.kind);
    r.field("until", text_of(entry.until).text);
    r.field("reason", entry.reason);
    r.end_object();
  }
  r.end_array();
}

} // namespace

bool baseline::needs_stream() const {
  return std::ranges::any_of(
      entries, [](auto &entry) { return entry.has_times() || entry.program_number >= 0; });
}

const allowed_finding *baseline::cover(const found &finding) {
  for (allowed_finding &entry : entries)
    if (!entry.is_expired && entry.used < entry.most && fits(entry, finding)) {
      ++entry.used;
      return &entry;
    }
  return nullptr;
}

uint64_t baseline::covered() const {
  return std::accumulate(entries.begin(), entries.end(), uint64_t{0},
                         [](uint64_t sum, auto &entry) { return sum + entry.used; });
}

void baseline::tell_rest(FILE *out) const {
  for (const allowed_finding &entry : entries)
    if (entry.is_expired)
      tell(out, path, entry, "expired, allows nothing any more");
    else if (is_unused(entry))
      tell(out, path, entry, "not needed, there is no such finding");
}

void baseline::put_rest(json_text &r) const {
  r.begin_object("baseline");
  r.field("file", path);
  r.field("allowed", covered());
  put_entries(r, "unused", entries, is_unused);
  put_entries(r, "expired", entries, is_expired);
  r.end_object();
}

void put_allowed(json_text &r, const allowed_finding *entry) {
  if (!entry)
    return;
  r.begin_object("allowed");
  r.field("reason", entry->reason);
  r.field("until", text_of(entry->until).text);
  r.end_object();
}
