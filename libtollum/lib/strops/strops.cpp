#include "strops/strops.h"

#include <strings.h>

#include <cctype>
#include <cerrno>
#include <cstdlib>

#include "tassert/tassert.h"

namespace {

constexpr struct {
  const char *text;
  double factor;
} suffixes[] = {
    {"", 1},         {"K", 1 << 10}, {"Kb", 1 << 10}, {"M", 1 << 20},
    {"Mb", 1 << 20}, {"G", 1 << 30}, {"Gb", 1 << 30},
};

const char *find_letter(const char *text) {
  while (*text != '\0' && !isalpha(static_cast<unsigned char>(*text)))
    ++text;
  return text;
}

// Factor that a suffix stands for, 0 for an unknown one.
double suffix_factor(const char *suffix) {
  for (const auto &row : suffixes)
    if (strcasecmp(suffix, row.text) == 0)
      return row.factor;
  return 0;
}

} // namespace

int a2double(const char *text, double *value) {
  TASSERT(text != nullptr);
  const char *suffix = find_letter(text);
  const double factor = suffix_factor(suffix);
  if (factor == 0)
    return -5;
  if (*suffix != '\0' && suffix - text > 63)
    return -3;
  errno = 0;
  const double number = strtod(text, nullptr); // stops at the suffix
  if (errno != 0)
    return -4;
  *value = number * factor;
  return 0;
}

int a2int64(const char *text, int64_t *value) {
  constexpr double LIMIT = 9223372036854775808.0;
  double number = 0;
  if (const int rc = a2double(text, &number); rc != 0)
    return rc;
  if (number > LIMIT || number < -LIMIT)
    return -2;
  *value = number == LIMIT ? INT64_MAX : static_cast<int64_t>(number);
  return 0;
}

int a2size(const char *text, size_t *value) {
  int64_t number = 0;
  const int rc = a2int64(text, &number);
  if (rc == 0)
    *value = static_cast<size_t>(number);
  return rc;
}
