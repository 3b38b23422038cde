#include "korva/version.h"

const char *korva_version() {
  return KORVA_VERSION;
}

uint32_t korva_version_number() {
  return KORVA_VERSION_NUMBER;
}
