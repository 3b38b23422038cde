#include "outputs/html_text.h"

void html_text::put_escaped(std::string_view foreign) {
  while (!foreign.empty()) {
    const size_t n = utf8_length(foreign);
    const char c = foreign[0];
    const bool is_noncharacter =
        n == 3 && (foreign.starts_with("\uFFFE") || foreign.starts_with("\uFFFF"));
    if (n == 0 || static_cast<uint8_t>(c) < ' ' || c == 0x7F || is_noncharacter)
      put(utf8_replacement);
    else if (c == '&')
      put("&amp;");
    else if (c == '<')
      put("&lt;");
    else if (c == '>')
      put("&gt;");
    else if (c == '"')
      put("&quot;");
    else if (c == '\'')
      put("&#39;");
    else
      put(foreign.substr(0, n));
    foreign.remove_prefix(n == 0 ? 1 : n);
  }
}
