#include "tsa/load_config.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>

#include "log/statement.h"

LOG_MODULE(0);

namespace {

constexpr char section_path[] = "vnt.stream_analyzer";

config_t g_libcfg;

int load_section(const config_t &file, tsan_config *cfg) {
  const config_setting_t *section = config_lookup(&file, section_path);
  if (!section) {
    LOG(g_log, ERR_level, "%s: missing %s section\n", "load_config", section_path);
    return -1;
  }
  return tsan_load_config(section, cfg);
}

} // namespace

// The parser ends the whole process on a directory.
settings_file open_settings(const char *path) {
  settings_file file{fopen(path, "r")};
  struct stat st;
  if (!file ||
      (fstat(fileno(file.get()), &st) == 0 && (S_ISREG(st.st_mode) || S_ISFIFO(st.st_mode))))
    return file;
  errno = 0;
  return {};
}

int load_settings(const char *path, const std::function<int(const config_t &)> &load) {
  const settings_file file = open_settings(path);
  if (!file) {
    fprintf(stderr, "Failed to load [%s]\n", path);
    return -1;
  }

  config_init(&g_libcfg);
  int rc = -1;
  if (config_read(&g_libcfg, file.get()) == CONFIG_TRUE)
    rc = load(g_libcfg);
  else
    LOG(g_log, ERR_level, "Error reading/parsing config file [%s]: line %d: %s\n", path,
        config_error_line(&g_libcfg), config_error_text(&g_libcfg));
  config_destroy(&g_libcfg);

  if (rc != 0)
    LOG(g_log, ERR_level, "load_config: [%s] FAILED (%d)\n", path, rc);
  return rc;
}

int load_config(const char *path, tsan_config *cfg) {
  return load_settings(path, [cfg](const config_t &file) { return load_section(file, cfg); });
}
