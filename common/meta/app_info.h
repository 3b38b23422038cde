// Who the program is: the texts behind -V, the usage text and the start and exit lines.
#pragma once

#include <cstdio>

// "korva (MPEG-TS file analyzer) 0.1-10.2 (nuvreck) 1a2b3c4d; built on 2018-09-24", made at the
// first call and returned unchanged by every later one, whatever its arguments; "#error#" when it
// does not fit in 255 characters. `checksum` null: that of the program's sources.
const char *get_custom_app_info(const char *app_tag, const char *description, const char *checksum);

// Tag of the support library: "libtlm/..." with its version and revision.
const char *lbtlm_info();

// Writes the build-information block of the usage text.
void dump_build_info(FILE *out);
