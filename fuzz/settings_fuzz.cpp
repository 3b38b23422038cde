// A settings file, from its text to the record and back to text.

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

#include <libconfig.h>

#include "log/log.h"
#include "tsanalyze/tsan.h"

// libconfig's scanner loses the text it has gathered when a file ends in the middle of a string.
extern "C" const char *__lsan_default_suppressions();
const char *__lsan_default_suppressions() {
  return "leak:strbuf_append\nleak:libconfig_yylex\n";
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);
int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static FILE *const sink = fopen("/dev/null", "w");
  const std::string text(data, data + size);
  if (text.find("@include") != std::string::npos)
    return -1; // reads files of the machine
  config_t file;
  config_init(&file);
  if (config_read_string(&file, text.c_str()) == CONFIG_TRUE) {
    if (const config_setting_t *section = config_lookup(&file, "vnt.stream_analyzer")) {
      tsan_config cfg = {};
      tsan_load_config(section, &cfg);
      tsan_dump_config(sink, "fuzz", &cfg);
    }
  }
  config_destroy(&file);
  return 0;
}
