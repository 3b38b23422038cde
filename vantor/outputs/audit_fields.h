// What a finding says beside where and when, the same in JSON and in terse lines.
#pragma once

#include "audit/audit.h"

// Takes fields by name. What is not there is told as such: a negative number, NAN, null.
class field_sink {
public:
  virtual ~field_sink() = default;
  virtual void count(const char *key, uint64_t value) = 0;
  virtual void number(const char *key, int32_t value) = 0;
  virtual void measure(const char *key, double value) = 0; // three decimals
  virtual void flag(const char *key, bool value) = 0;
  virtual void word(const char *key, const char *value) = 0;
  virtual void list(const char *key, const audit_list &list) = 0;
};

// Tells the fields of the finding's kind.
void tell_fields(const audit_finding &finding, field_sink &to);
