// What --audit is told, by the command line or a settings file. Nothing that is misspelt is
// accepted here.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <optional>

#include "audit/audit.h"

struct audit_options {
  bool is_on;
  std::optional<audit_profile> profile;
  size_t packet_size; // bytes, 0: to be found
  std::optional<double> limits[AUDIT_LIMITS];
  uint64_t exit_kinds; // of --exit-alerts, bit per audit_kind
  bool exit_on_fail;   // --exit-alerts without kinds
  const char *clips;   // directory of --clip, or null
};

// Each sets one option from its word. They return 0, or 22 (EINVAL) after a report on standard
// error, which begins with `where`: the name of the option, or the line of the file.
int audit_set_profile(audit_options &options, const char *where, const char *word);
int audit_set_packet_size(audit_options &options, const char *where, const char *word);
int audit_set_limit(audit_options &options, const char *where, const char *name, const char *value);

// Acts on an option of a run with --audit, where it means something else than without; `arg` is its
// argument or null. Returns 0, 22 (EINVAL) after a report, or nothing: the option is as always.
std::optional<int> apply_audit_option(int opt, const char *arg);

// The same for a run without --audit.
std::optional<int> refuse_audit_option(int opt);

// The analyzer's settings: those of the profile, and what was set beside it.
audit_config make_audit_config(const audit_options &options);

// Prints what the run goes by.
void dump_audit_config(FILE *out);
