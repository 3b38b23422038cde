#include "config/settings.h"

#include <cstring>

#include "log/statement.h"
#include "strops/strops.h"

LOG_MODULE(0);

namespace {

// Also clears what an earlier, longer value left behind.
void fill_text(char *dst, size_t size, const char *text) {
  strncpy(dst, text, size - 1);
  dst[size - 1] = '\0';
}

} // namespace

int load_config_setting_str(const config_setting_t *group, const char *name, char *dst, size_t size,
                            const char *dflt) {
  const char *text = nullptr;
  if (config_setting_lookup_string(group, name, &text) != CONFIG_TRUE || text == nullptr) {
    fill_text(dst, size, dflt != nullptr ? dflt : "");
    return 0;
  }
  if (const size_t len = strlen(text); len >= size) {
    LOG(g_log, ERR_level, "%s: %s value is too long (%ld), max = %ld characters.\n", __func__, name,
        static_cast<long>(len), static_cast<long>(size));
    return -1;
  }
  fill_text(dst, size, text);
  return 0;
}

int load_config_setting_size(const config_setting_t *group, const char *name, size_t *value,
                             size_t dflt) {
  long long number = 0;
  if (config_setting_lookup_int64(group, name, &number) == CONFIG_TRUE) {
    *value = static_cast<size_t>(number);
    return 0;
  }
  char text[32] = {};
  if (const int rc = load_config_setting_str(group, name, text, sizeof text, nullptr); rc != 0)
    return rc;
  if (text[0] != '\0')
    return a2size(text, value);
  *value = dflt;
  return 0;
}
