#include "tsanalyze/pids.h"

#include <algorithm>

void pids_rebuild(tsan_ctx *tc) {
  std::ranges::fill(tc->pids, pid_use{-1, -1});

  // Backwards, so that what is found first is written last.
  for (size_t i = tc->nprogs; i-- > 0;)
    for (size_t j = tc->pg[i].nstreams; j-- > 0;)
      tc->pids[tc->pg[i].stm[j].pid] = {static_cast<int8_t>(i), static_cast<int8_t>(j)};

  const auto *list_end = std::ranges::find(tc->pmt_pid, 0u);
  for (size_t i = static_cast<size_t>(list_end - tc->pmt_pid); i-- > 0;)
    tc->pids[tc->pmt_pid[i]] = {static_cast<int8_t>(i), -1};

  tc->pids[PID_PAT] = {-1, -1};
}
