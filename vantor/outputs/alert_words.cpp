#include "outputs/alert_words.h"

#include <cinttypes>
#include <cstdio>

const char *alert_meaning(tsan_alert_kind kind) {
  constexpr const char *meanings[TSAN_ALERT_KINDS] = {
      "continuity counter broken: packets lost or repeated",
      "continuity counter began anew",
      "the same loss on several streams",
      "audio time stamp too far from the PCR",
      "audio less than 1 ms from video, but not on it",
      "audio too far from video",
      "PCRs too far apart",
      "list of programs changed",
      "PMT changed",
      "announced stream without a packet",
      "framing lost",
      "packet without sync byte: the run ended there",
      "nothing to analyze: the run ended there",
  };
  return meanings[kind];
}

short_text alert_detail(const tsan_alert &a) {
  short_text out = {};
  constexpr size_t size = sizeof out.text;
  const char *stamp = a.is_pts ? "PTS" : "DTS";
  switch (a.kind) {
  case TSAN_CC_BRK:
  case TSAN_CC_RST:
    if (a.last_cc == a.current_cc)
      snprintf(out.text, size, "counter %d twice", a.last_cc);
    else
      snprintf(out.text, size, "counter %d, then %d", a.last_cc, a.current_cc);
    break;
  case TSAN_PCR_DELTA:
    snprintf(out.text, size, "%s %" PRIu64 " ms from the PCR", stamp, a.delta_ms);
    break;
  case TSAN_AV_DELTA0:
    snprintf(out.text, size, "%s less than 1 ms from PID %u", stamp, a.ref_pid);
    break;
  case TSAN_AV_DELTA_PLUS:
    snprintf(out.text, size, "%s %" PRIu64 " ms from PID %u", stamp, a.delta_ms, a.ref_pid);
    break;
  case TSAN_PCR_FREQ:
    snprintf(out.text, size, "%" PRIu64 " ms between PCRs", a.delta_ms);
    break;
  case TSAN_PAT_DIFF:
    snprintf(out.text, size, "%zu PIDs added, %zu gone, %zu now", a.added, a.deleted, a.programs);
    break;
  case TSAN_PMT_DIFF:
    snprintf(out.text, size, "%zu streams, then %zu entries", a.old_tracks, a.new_tracks);
    break;
  case TSAN_PID_NDAT:
    snprintf(out.text, size, "stream %zu of the program has no packet", a.track);
    break;
  default:
    break;
  }
  return out;
}
