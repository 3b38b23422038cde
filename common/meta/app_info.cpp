#include "meta/app_info.h"

#include <mutex>

#include "build_checksum.h"

namespace {

constexpr char VERSION[] = "0.1";
constexpr int BUILD_MAJOR = 10;
constexpr int BUILD_MINOR = 2;
constexpr char SUITE[] = "nuvreck";
constexpr char BUILD_DATE[] = "2018-09-24";

// Version, build, revision and build time (epoch seconds) of the support library.
constexpr char LIBRARY_TAG[] = "libtlm/1.5-6.12 (26311d7f) @1514991516";
constexpr char COMPILE_FLAGS[] = "-ggdb";

} // namespace

const char *get_custom_app_info(const char *app_tag, const char *description,
                                const char *checksum) {
  static char cache[256];
  static std::mutex lock;
  const std::lock_guard guard{lock};
  if (cache[0] != '\0')
    return cache;
  const int n = snprintf(cache, sizeof cache, "%s (%s) %s-%d.%d (%s) %s; built on %s", app_tag,
                         description, VERSION, BUILD_MAJOR, BUILD_MINOR, SUITE,
                         checksum != nullptr ? checksum : KORVA_BUILD_CHECKSUM, BUILD_DATE);
  if (n > 0 && static_cast<size_t>(n) < sizeof cache)
    return cache;
  cache[0] = '\0';
  return "#error#";
}

const char *lbtlm_info() {
  return LIBRARY_TAG;
}

void dump_build_info(FILE *out) {
  fprintf(out, "----\n%s [%s]\n----\n\n", lbtlm_info(), COMPILE_FLAGS);
}
