// Packet tag: the short text that names the current packet in every line, "0:1[57]:(pcr=123456)+3".
#pragma once

#include "tsanalyze/ctx.h"

// Most packets are never named, so a tag is only taken when it is first asked for, and only put
// into words for a line. Whatever changes what it says (the PCR of the program, the packet index)
// has to take it before.
const packet_tag &take_tag(tsan_ctx *tc);

// The text of a tag, empty of none; `text` is as long as MAX_PTAG.
void write_tag(const packet_tag &tag, char *text);

// Makes the text of the current packet's tag.
void mk_ptag(tsan_ctx *tc);

inline const char *ptag(tsan_ctx *tc) {
  if (tc->ptag_ptotal != tc->ptotal)
    mk_ptag(tc);
  return tc->ptag;
}
