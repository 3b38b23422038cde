// --clip: pieces of the capture around its findings, made when all of it has been judged.
#pragma once

#include <sys/stat.h>

#include "outputs/clip_plan.h"
#include "outputs/output_file.h"

// The directory, and the capture as it was before the run.
struct clip_target {
  const char *directory = nullptr; // null: no clips are wanted
  struct stat capture = {};
};

// Notes what the capture is, and makes the directory. Returns false after a report on standard
// error: clips cannot be had.
bool start_clips(clip_target &target, const char *capture);

// What was read of the capture.
struct clip_range {
  const char *capture;
  size_t packet_size;   // bytes
  uint64_t first, last; // offset of the first record that was judged, and behind the last one
};

// Makes the clips: the records with the last PAT and PMTs before each, and its bytes as they stand.
// Tells on standard error how it went and, when it is open, in JSON which there are. Returns false
// when not all could be made; those that are whole stay.
bool make_clips(const clip_target &target, const clip_plan &plan, const clip_range &range,
                output_file &json);
