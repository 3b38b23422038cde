#include "meta/app_info.h"

#include <cstdarg>
#include <cstring>
#include <mutex>
#include <span>

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

constexpr char ERROR_TEXT[] = "#error#";

// The text in `cache`, made by the first call that finds it empty. One that does not fit is not
// kept.
[[gnu::format(printf, 2, 3)]] const char *get_cached(std::span<char> cache, const char *format,
                                                     ...) {
  static std::mutex lock;
  const std::lock_guard guard{lock};
  if (cache[0] != '\0')
    return cache.data();
  va_list args;
  va_start(args, format);
  const int n = vsnprintf(cache.data(), cache.size(), format, args);
  va_end(args);
  if (n > 0 && static_cast<size_t>(n) < cache.size())
    return cache.data();
  cache[0] = '\0';
  return ERROR_TEXT;
}

constexpr struct {
  const char *app_tag;
  const char *description;
} tools[] = {
    {"korva", "MPEG-TS file analyzer"},
};

} // namespace

const char *get_custom_app_info(const char *app_tag, const char *description,
                                const char *checksum) {
  static char cache[256];
  return get_cached(cache, "%s (%s) %s-%d.%d (%s) %s; built on %s", app_tag, description, VERSION,
                    BUILD_MAJOR, BUILD_MINOR, SUITE,
                    checksum != nullptr ? checksum : KORVA_BUILD_CHECKSUM, BUILD_DATE);
}

const char *get_app_info(const char *app_tag, const char *checksum) {
  for (const auto &tool : tools)
    if (strcmp(app_tag, tool.app_tag) == 0)
      return get_custom_app_info(app_tag, tool.description, checksum);
  return ERROR_TEXT;
}

const char *get_app_tag(const char *app_tag) {
  static char cache[128];
  return get_cached(cache, "%s/%s-%d.%d (%s)", app_tag, VERSION, BUILD_MAJOR, BUILD_MINOR, SUITE);
}

const char *lbtlm_info() {
  return LIBRARY_TAG;
}

void dump_build_info(FILE *out) {
  fprintf(out, "----\n%s [%s]\n----\n\n", lbtlm_info(), COMPILE_FLAGS);
}
