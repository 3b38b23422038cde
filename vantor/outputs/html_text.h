// Text of an HTML page, or of XML, on its way to a file.
#pragma once

#include "outputs/text_out.h"

struct html_text : text_out {
  using text_out::text_out;

  // Foreign text: escaped, and what is no UTF-8 or no character that a page may have reads as
  // U+FFFD. Everything else on a page is markup of our own.
  void put_escaped(std::string_view foreign);
};
