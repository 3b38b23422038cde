#include "tsanalyze/pmt.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <bitstream/mpeg/ts.h>

#include <bitstream/mpeg/psi/psi.h>

#include <bitstream/mpeg/psi/pmt_print.h>

#include "log/statement.h"
#include "syswrap/syswrap.h"
#include "tsanalyze/alert.h"
#include "tsanalyze/deliver.h"
#include "tsanalyze/ending.h"
#include "tsanalyze/ndat.h"
#include "tsanalyze/pids.h"
#include "tsanalyze/ptag.h"
#include "tsanalyze/streams.h"

LOG_MODULE(0);

namespace {

// Text in a descriptor is shown as it stands, whatever its character set. The library frees it.
char *keep_charset(void *, const char *, char *text, size_t length) {
  auto *copy = static_cast<char *>(malloc(length + 1));
  if (copy) {
    memcpy(copy, text, length);
    copy[length] = '\0';
  }
  return copy;
}

void render_pmt(psi_section *sec, ctxt_spec *txt) {
  pmt_print(sec->data, add_ctxt_line, txt, keep_charset, nullptr, PRINT_TEXT);
}

// Remembers the PMT that txt_pmt shows, unless lines had to be dropped: those are warned about each
// time.
void remember_pmt(program_info *pg, const psi_section *sec) {
  if (ctxt_is_full(&pg->txt_pmt))
    pg->seen_pmt.size = 0;
  else
    remember_section(&pg->seen_pmt, sec);
}

// Calls `visit` for each of the first 64 entries of the ES loop.
template <typename Visit> void for_each_es(psi_section *sec, Visit visit) {
  for (uint8_t j = 0; j < MAX_NSTREAMS; ++j) {
    const uint8_t *es = pmt_get_es(sec->data, j);
    if (!es)
      break;
    visit(es);
  }
}

ssize_t add_pmt_stream(tsan_ctx *tc, const uint8_t *es) {
  const uint32_t pid = pmtn_get_pid(es);
  const uint8_t scode = pmtn_get_streamtype(es);
  LOG(g_log, INFO_level, "[%s] ADD (pid=%u, type=%u) [%s]\n", tc->cfg.source, pid, scode,
      streamtype_name(scode));
  return add_stream(tc, pid, scode);
}

// Where a mismatch could be forced, to see what a change would do.
bool debug_pmt_cmp(const tsan_ctx *) {
  return false;
}

void dump_pmt(const char *title, const ctxt_spec *txt) {
  const log_block block(g_log);
  dump_ctxt(block.out, title, txt);
}

// The old count is of accepted streams, the new one of all entries.
void alert_pmt_diff(tsan_ctx *tc, uint32_t pid, const ctxt_spec *new_txt, size_t entries,
                    uint32_t pcr_pid) {
  program_info *pg = prog(tc);
  alert_human(tc, "ALERT PMT-DIFF [%s] track-count: %zu/%zu pid=%u pcr-pid=%u at %s\n",
              tc->cfg.source, pg->nstreams, entries, pid, pcr_pid, ptag(tc));
  if (tc->cfg.trk.pmt_diff) {
    dump_pmt("Older PMT:", &pg->txt_pmt);
    dump_pmt("New PMT:", new_txt);
  }
  alert_terse(tc, "ALERT PMT-DIFF %s %u %zu %zu %u %s\n", tc->cfg.source, pid, pg->nstreams,
              entries, pcr_pid, ptag(tc));
  read_out(tc, TSAN_PMT_DIFF, pg, pid, [&](tsan_alert &a) {
    a.old_tracks = pg->nstreams;
    a.new_tracks = entries;
    a.pcr_pid = pcr_pid;
  });
  ++pg->alert.pmt_diff;
}

} // namespace

bool process_PMT(tsan_ctx *tc, psi_section *sec, uint32_t pid) {
  program_info *pg = prog(tc);
  LOG(g_log, INFO_level, "Adding streams from PMT (pid%u) at %s\n", pid, ptag(tc));
  pg->pcr_pid = pmt_get_pcrpid(sec->data);
  LOG(g_log, INFO_level, "[%s] PMT lists PCR pid=%u at %s\n", tc->cfg.source, pg->pcr_pid,
      ptag(tc));
  if (!TABLE_HOLDS(tc, prog(tc)->pcr_pid))
    return false;

  size_t added = 0;
  for_each_es(sec, [&](const uint8_t *es) { added += add_pmt_stream(tc, es) >= 0; });
  pids_rebuild(tc);
  LOG(g_log, INFO_level, "Added %zu streams from PMT (pid%u) at %s\n", added, pid, ptag(tc));
  if (added != 0)
    pg->curr_pmt_pid = pid;

  if (!pg->txt_pmt.buf) {
    open_ctxt(&pg->txt_pmt, MAX_PMT_TXT);
    render_pmt(sec, &pg->txt_pmt);
    remember_pmt(pg, sec);
  }
  if (tc->cfg.trk.pmt_diff) {
    LOG(g_log, INFO_level, "%s: PMT pid=%u, %zu entries\n", __func__, pid, added);
    dump_pmt("Using PMT:", &pg->txt_pmt);
  }
  return true;
}

bool cmp_PMT(tsan_ctx *tc, psi_section *sec, uint32_t pid) {
  program_info *pg = prog(tc);
  if (is_seen_section(&pg->seen_pmt, sec) && !tc->cfg.trk.pmt_diff)
    return false;
  size_t entries = 0;
  for_each_es(sec, [&](const uint8_t *) { ++entries; });

  bool changed = false;
  ctxt_spec txt = {};
  if (open_ctxt(&txt, MAX_PMT_TXT) == 0) {
    render_pmt(sec, &txt);
    changed = cmp_ctxt(&pg->txt_pmt, &txt) != 0 || debug_pmt_cmp(tc);
    if (changed) {
      alert_pmt_diff(tc, pid, &txt, entries, pmt_get_pcrpid(sec->data));
      replace_ctxt(&pg->txt_pmt, &txt);
      reset_ndat_pcount(tc);
    }
    remember_pmt(pg, sec);
  }
  close_ctxt(&txt);

  if (tc->cfg.trk.pmt_diff)
    LOG(g_log, INFO_level, "%s: %s pid=%u %zu/%zu\n", __func__, changed ? "MISMATCH" : "ok", pid,
        pg->nstreams, entries);
  return changed;
}

void update_PMT(tsan_ctx *tc, psi_section *sec, uint32_t pid) {
  program_info *pg = prog(tc);
  const size_t old_count = pg->nstreams;
  const calloc_ptr<stream_info> old{
      static_cast<stream_info *>(W_calloc(__func__, old_count, sizeof(stream_info)))};
  if (!old)
    return;
  std::copy_n(pg->stm, old_count, old.get());
  stream_alert_count old_alerts[MAX_NSTREAMS];
  std::copy_n(&alerts_of(tc, pg, pg->stm), old_count, old_alerts);

  pg->nstreams = 0;
  if (!process_PMT(tc, sec, pid)) { // the report shows what was there
    pg->nstreams = old_count;
    return;
  }

  size_t matches = 0;
  for (size_t i = 0; i < pg->nstreams; ++i) {
    const ssize_t k = find_stream({old.get(), old_count}, pg->stm[i].pid);
    if (k < 0)
      continue;
    copy_stm_stats(&pg->stm[i], &old.get()[k]);
    alerts_of(tc, pg, &pg->stm[i]) = old_alerts[k];
    ++matches;
    LOG(g_log, DEBUG_level, "%s: copied stats from old[%d] to new[%zu]\n", __func__,
        static_cast<int>(k), i);
  }
  LOG(g_log, DEBUG_level, "%s: %zu old/new entries matched\n", __func__, matches);
}

const char *streamtype_name(uint8_t scode) {
  return pmt_get_streamtype_txt(scode);
}

const char *get_streamtype_txt(uint8_t scode) {
  static thread_local char text[80];
  const char *name = streamtype_name(scode);
  if (!strchr(name, ' '))
    return name;
  snprintf(text, sizeof text, "%s", name);
  std::ranges::replace_if(
      text, [](char c) { return c == ' ' || c == '\t'; }, '_');
  return text;
}
