// A record of JSON Lines on its way to a file.
//
//   json_text record(file);
//   record.field("record", "header");
//   record.begin_array("streams");
//   ...
//   record.end_array();
//
// The line ends with the record's life.
#pragma once

#include <concepts>
#include <cstdint>
#include <string_view>

#include "outputs/text_out.h"

class json_text {
public:
  explicit json_text(output_file &file) : out(file) { out.put("{"); }
  ~json_text() { out.put("}\n"); }

  // The members of an object. Bytes that are no UTF-8 read as U+FFFD.
  void field(const char *key, std::string_view value);
  void field(const char *key, const char *value) { field(key, std::string_view(value)); }
  void field(const char *key, bool value);
  void field(const char *key, double value);
  template <std::integral T> void field(const char *key, T value) {
    if constexpr (std::is_signed_v<T>)
      put_signed(key, value);
    else
      put_unsigned(key, value);
  }
  void null(const char *key);

  // The value, or null where there is none.
  template <typename T> void field_if(bool is_there, const char *key, T value) {
    if (is_there)
      field(key, value);
    else
      null(key);
  }

  // Seconds, to the microsecond; null when they are not a number.
  void seconds(const char *key, double value);

  // Objects and arrays as members, or, with a null key, as items of an array.
  void begin_object(const char *key = nullptr) { begin(key, "{"); }
  void end_object() { end("}"); }
  void begin_array(const char *key) { begin(key, "["); }
  void end_array() { end("]"); }

  // Items of an array.
  void item(uint64_t value);

private:
  void put_key(const char *key);
  void put_signed(const char *key, int64_t value);
  void put_unsigned(const char *key, uint64_t value);
  void begin(const char *key, const char *bracket);
  void end(const char *bracket);

  text_out out;
  bool needs_comma = false;
};
