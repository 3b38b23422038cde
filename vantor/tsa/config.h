// The program's settings.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <span>

#include "outputs/settings.h"
#include "tsa/audit_options.h"
#include "tsanalyze/tsan.h"

struct config {
  char fpath[256];    // file to analyze, at most 255 characters
  int verbosity;      // -v options
  tsan_config tsa;    // the analyzer's settings
  off_t start_rec;    // first packet to read, 1-based; 0 and 1 are the start of the file
  size_t max_records; // packets to analyze, 0 = all

  output_settings out;
  audit_options audit;            // --audit and what belongs to it
  std::span<char *const> options; // words of the command line before the file
};

extern config g_cfg;

// Texts of the program in its own lines.
inline constexpr char g_app_name[] = "korva";
inline constexpr char g_app_descr[] = "MPEG-TS file analyzer";
