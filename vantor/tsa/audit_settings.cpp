#include "tsa/audit_settings.h"

#include <cstdio>
#include <cstring>
#include <string>

#include "tsa/load_config.h"

namespace {

// A value as the command line would have it; other types have no text.
std::string text_of(const config_setting_t *setting) {
  switch (config_setting_type(setting)) {
  case CONFIG_TYPE_STRING:
    return config_setting_get_string(setting);
  case CONFIG_TYPE_INT:
  case CONFIG_TYPE_INT64:
    return std::to_string(config_setting_get_int64(setting));
  case CONFIG_TYPE_FLOAT:
    return std::to_string(config_setting_get_float(setting));
  default:
    return {};
  }
}

struct settings_reader {
  const char *path;
  config &cfg;

  std::string where(const config_setting_t *setting) const {
    return std::string(path) + ":" + std::to_string(config_setting_source_line(setting));
  }

  int refuse(const config_setting_t *setting, const char *what) const {
    fprintf(stderr, "%s: [%s] %s\n", where(setting).c_str(), config_setting_name(setting), what);
    return -1;
  }

  int set_source_tag(const config_setting_t *setting) const {
    const std::string tag = text_of(setting);
    if (config_setting_type(setting) != CONFIG_TYPE_STRING || tag.size() >= sizeof cfg.tsa.source)
      return refuse(setting, "is no text of at most 63 characters");
    memcpy(cfg.tsa.source, tag.c_str(), tag.size() + 1);
    return 0;
  }

  template <typename load> int each(const config_setting_t *group, load load_one) const {
    if (!config_setting_is_group(group))
      return refuse(group, "is no group");
    int rc = 0;
    for (int i = 0; i < config_setting_length(group) && rc == 0; ++i)
      rc = load_one(config_setting_get_elem(group, static_cast<unsigned>(i)));
    return rc;
  }

  int load_limit(const config_setting_t *setting) const {
    return audit_set_limit(cfg.audit, where(setting).c_str(), config_setting_name(setting),
                           text_of(setting).c_str());
  }

  int load_key(const config_setting_t *setting) const {
    const std::string key = config_setting_name(setting), place = where(setting);
    const std::string value = text_of(setting);
    if (key == "profile")
      return audit_set_profile(cfg.audit, place.c_str(), value.c_str());
    if (key == "packet_size")
      return audit_set_packet_size(cfg.audit, place.c_str(), value.c_str());
    if (key == "source_tag")
      return set_source_tag(setting);
    if (key == "limits")
      return each(setting, [this](auto limit) { return load_limit(limit); });
    return refuse(setting, "is no key of vnt.audit");
  }

  int load_group(const config_setting_t *group) const {
    return each(group, [this](auto setting) { return load_key(setting); });
  }
};

} // namespace

int load_audit_settings(const char *path, config &cfg) {
  return load_settings(path, [&](const config_t &file) {
    if (const config_setting_t *group = config_lookup(&file, "vnt.audit"))
      return settings_reader{path, cfg}.load_group(group);
    if (config_lookup(&file, "vnt.stream_analyzer"))
      return 0;
    fprintf(stderr, "%s: there is no group vnt.audit\n", path);
    return -1;
  });
}
