// Words of the command line: -A, -k, and sizes. The first byte chooses.

#include <cstdint>
#include <cstdlib>
#include <string>

#include "log/log.h"
#include "strops/strops.h"
#include "tsanalyze/tsan.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);
int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size == 0)
    return -1;
  const std::string word(data + 1, data + size);
  tsan_config cfg = {};
  switch (data[0] % 3) {
  case 0:
    if (tsan_cli_opt(word.c_str(), &cfg) == 0 && word.find('-') == std::string::npos &&
        cfg.max_skip_pkts > INT64_MAX)
      abort();
    break;
  case 1:
    if (tsan_xtrack_opt(word.c_str(), &cfg) != 0)
      abort();
    break;
  default: {
    int64_t number = 0;
    size_t bytes = 0;
    if (a2int64(word.c_str(), &number) != a2size(word.c_str(), &bytes))
      abort();
  }
  }
  return 0;
}
