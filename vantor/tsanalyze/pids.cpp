#include "tsanalyze/pids.h"

#include <algorithm>

namespace {

const dgram_info *place(tsan_ctx *tc, size_t index, const dgram_info &content) {
  tc->places[index] = content;
  return &tc->places[index];
}

const dgram_info *nothing(tsan_ctx *tc) {
  return place(tc, PLACE_NOTHING, {-1, -1, false, false, nullptr, nullptr});
}

const dgram_info *pat(tsan_ctx *tc) {
  return place(tc, PLACE_PAT, {-1, -1, true, false, nullptr, nullptr});
}

const dgram_info *pmt(tsan_ctx *tc, size_t i) {
  return place(tc, PLACE_PMT + i, {static_cast<ssize_t>(i), -1, false, true, &tc->pg[i], nullptr});
}

const dgram_info *stream(tsan_ctx *tc, size_t i, size_t j) {
  return place(tc, PLACE_STREAM + i * MAX_NSTREAMS + j,
               {static_cast<ssize_t>(i), static_cast<ssize_t>(j), false, false, &tc->pg[i],
                &tc->pg[i].stm[j]});
}

void carry(tsan_ctx *tc, uint32_t pid, const dgram_info *what) {
  tc->pids[pid] = what;
  tc->carriers[tc->ncarriers++] = static_cast<uint16_t>(pid);
}

} // namespace

void pids_init(tsan_ctx *tc) {
  std::ranges::fill(tc->pids, nothing(tc));
  carry(tc, PID_PAT, pat(tc));
}

void pids_rebuild(tsan_ctx *tc) {
  for (; tc->ncarriers != 0; --tc->ncarriers)
    tc->pids[tc->carriers[tc->ncarriers - 1]] = &tc->places[PLACE_NOTHING];

  // Backwards, so that what is found first is written last.
  for (size_t i = tc->nprogs; i-- > 0;)
    for (size_t j = tc->pg[i].nstreams; j-- > 0;)
      carry(tc, tc->pg[i].stm[j].pid, stream(tc, i, j));

  const auto *list_end = std::ranges::find(tc->pmt_pid, 0u);
  for (size_t i = static_cast<size_t>(list_end - tc->pmt_pid); i-- > 0;)
    carry(tc, tc->pmt_pid[i], pmt(tc, i));

  carry(tc, PID_PAT, pat(tc));
}
