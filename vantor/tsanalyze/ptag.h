// Packet tag: the short text that names the current packet in every line, "0:1[57]:(pcr=123456)+3".
#pragma once

#include "tsanalyze/ctx.h"

// Writes the tag of the current packet from the context as it stands now.
void mk_ptag(tsan_ctx *tc);

// Most packets are never named, so a tag is only made when it is first asked for. Whatever changes
// what it is made of (the PCR of the program, the packet index) has to call ptag() before.
inline const char *ptag(tsan_ctx *tc) {
  if (tc->ptag_ptotal != tc->ptotal)
    mk_ptag(tc);
  return tc->ptag;
}
