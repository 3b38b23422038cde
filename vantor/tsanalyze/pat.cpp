#include "tsanalyze/pat.h"

#include <algorithm>
#include <cstdarg>
#include <cstdlib>
#include <span>

#include <bitstream/mpeg/psi/psi.h>

#include <bitstream/mpeg/psi/pat.h>

#include <bitstream/mpeg/psi/pat_print.h>

#include "log/statement.h"
#include "syswrap/syswrap.h"
#include "tassert/tassert.h"
#include "tsanalyze/alert.h"
#include "tsanalyze/deliver.h"
#include "tsanalyze/ending.h"
#include "tsanalyze/ndat.h"
#include "tsanalyze/pids.h"
#include "tsanalyze/ptag.h"

LOG_MODULE(0);

namespace {

// Walks the programs of sections 0 to `last`; of one section at most 32 are read.
struct program_walk {
  psi_block *psi;
  unsigned last;
  unsigned section = 0;
  unsigned next_index = 0;
  unsigned index = 0; // of the current program in its section
  uint32_t pid = 0;   // its PMT PID
  uint16_t number = 0;

  bool next() {
    for (; section <= last; ++section, next_index = 0) {
      if (next_index == MAX_PMTS)
        continue;
      uint8_t *sec = psi_table_get_section(psi->sec, static_cast<uint8_t>(section));
      const uint8_t *program = pat_get_program(sec, static_cast<uint8_t>(next_index));
      if (!program)
        continue;
      index = next_index++;
      pid = patn_get_pid(program);
      number = patn_get_program(program);
      return true;
    }
    return false;
  }
};

// Prints one line of a table.
[[gnu::format(printf, 2, 3)]] void m_print(void *opaque, const char *format, ...) {
  char line[128] = {};
  va_list args;
  va_start(args, format);
  vsnprintf(line, sizeof line - 1, format, args);
  va_end(args);
  fprintf(static_cast<FILE *>(opaque), "%s\n", line);
}

void dump_pat(tsan_ctx *tc, const char *title, psi_block *psi) {
  const log_block block(g_log);
  if (!block.out)
    return;
  const log_hold hold(g_log);
  if (title)
    LOG(g_log, INFO_level, "[%s] %s\n", tc->cfg.source, title);
  pat_table_print(psi->sec, m_print, block.out, PRINT_TEXT);
}

void alert_pat_diff(tsan_ctx *tc, size_t added, size_t deleted) {
  alert_human(tc, "ALERT PAT-DIFF [%s] PMTs added/deleted: %zu/%zu progs=%zu at %s\n",
              tc->cfg.source, added, deleted, tc->nprogs, ptag(tc));
  if (tc->cfg.trk.pat_diff) {
    dump_pat(tc, "Older PAT:", &tc->pat);
    dump_pat(tc, "New PAT:", tc->new_pat);
  }
  alert_terse(tc, "ALERT PAT-DIFF %s 0 %zu %zu %zu %s\n", tc->cfg.source, tc->nprogs, added,
              deleted, ptag(tc));
  read_out(tc, TSAN_PAT_DIFF, nullptr, 0, [&](tsan_alert &a) {
    a.added = added;
    a.deleted = deleted;
    a.programs = tc->nprogs;
  });
  ++tc->gac.pat_diff;
}

// Index of the first `pid`, or -1.
ssize_t find_pid(std::span<const uint32_t> pids, uint32_t pid) {
  for (size_t i = 0; i < pids.size(); ++i)
    if (pids[i] == pid)
      return static_cast<ssize_t>(i);
  return -1;
}

// The PMT PIDs while a PAT is merged. A PAT can list far more than the context holds, so the lists
// have room for the fullest table there is: 255 sections of 32 programs.
struct merge_lists {
  enum { CAPACITY = MAX_PMTS + 255 * MAX_PMTS };
  uint32_t old[CAPACITY]; // PIDs known before; 0 where one was found again
  uint32_t pid[CAPACITY];
  size_t old_count, count;
  size_t added, deleted;
};

void merge_pid(const tsan_ctx *tc, merge_lists &lists, uint32_t pid) {
  const ssize_t found = find_pid({lists.old, lists.count}, pid);
  if (found >= 0) {
    lists.old[found] = 0;
    return;
  }
  lists.pid[lists.count++] = pid;
  ++lists.added;
  LOG(g_log, WARN_level, "[%s] pid%u ADDED in new PAT\n", tc->cfg.source, pid);
}

// Closes the gaps of the PIDs that were not found again.
void compact_pids(const tsan_ctx *tc, merge_lists &lists) {
  for (size_t i = 0; i < lists.count; ++i) {
    if (i < lists.old_count && lists.old[i] != 0) {
      ++lists.deleted;
      LOG(g_log, WARN_level, "[%s] pid%u MISSING in new PAT\n", tc->cfg.source, lists.old[i]);
    } else {
      lists.pid[i - lists.deleted] = lists.pid[i];
    }
  }
  lists.count -= lists.deleted;
}

// Takes over the PMT PIDs of the new PAT. Returns false when nothing changes by it.
bool merge_PATs(tsan_ctx *tc, unsigned last) {
  const calloc_ptr<merge_lists> lists{
      static_cast<merge_lists *>(W_calloc(__func__, 1, sizeof(merge_lists)))};
  if (!lists)
    return true; // not known: the next one is looked at anew
  std::copy_n(tc->pmt_pid, tc->nprogs, lists->old);
  std::copy_n(tc->pmt_pid, MAX_PMTS, lists->pid); // with what stands behind the list's end
  lists->count = lists->old_count = tc->nprogs;

  for (program_walk walk{tc->new_pat, last}; walk.next();)
    merge_pid(tc, *lists, walk.pid);
  compact_pids(tc, *lists);

  if (!TABLE_HOLDS_AS(tc, lists->count < MAX_PMTS, "tc->nprogs < MAX_PMTS"))
    return true;
  lists->pid[lists->count] = 0;
  const bool is_diff = lists->added != 0 || lists->deleted != 0;
  if (!is_diff && std::ranges::equal(std::span(lists->pid, MAX_PMTS), tc->pmt_pid))
    return false;
  tc->nprogs = lists->count;
  std::copy_n(lists->pid, MAX_PMTS, tc->pmt_pid);
  pids_rebuild(tc);

  if (is_diff) {
    alert_pat_diff(tc, lists->added, lists->deleted);
    reset_ndat_pcount(tc);
  }
  return true;
}

// Notes what a PAT calls the programs that are known by their PMT PIDs, and the stream itself.
void note_numbers(tsan_ctx *tc, psi_block *psi, unsigned last) {
  tc->transport_stream_id = psi_get_tableidext(psi_table_get_section(psi->sec, 0));
  bool noted[MAX_PMTS] = {}; // a PID can be listed for several programs
  for (program_walk walk{psi, last}; walk.next();) {
    for (size_t i = 0; i < tc->nprogs; ++i) {
      if (noted[i] || tc->pmt_pid[i] != walk.pid)
        continue;
      noted[i] = true;
      tc->program_number[i] = walk.number;
      break;
    }
  }
}

void free_new_pat(tsan_ctx *tc) {
  psi_block_free(tc->new_pat);
  free(tc->new_pat);
  tc->new_pat = nullptr;
}

} // namespace

void process_PAT(tsan_ctx *tc, psi_section *sec) {
  tc->seen_pat.size = 0; // the reference is about to change
  if (!psi_block_add(&tc->pat, sec)) {
    LOG(g_log, DEBUG_level, "%s: (%p) not all sections gathered yet\n", __func__,
        static_cast<void *>(tc));
    return;
  }
  TASSERT(0 == tc->nprogs);

  const unsigned last = psi_get_lastsection(sec->data);
  for (program_walk walk{&tc->pat, last}; walk.next();) {
    if (tc->nprogs == MAX_PMTS) {
      LOG(g_log, ERR_level, "%s: [%s] too many programs in PAT at %s\n", __func__, tc->cfg.source,
          ptag(tc));
      break;
    }
    tc->pmt_pid[tc->nprogs] = walk.pid;
    if (!TABLE_HOLDS(tc, tc->pmt_pid[tc->nprogs]))
      return;
    // Shown is the entry at the program's index in its section; from section 1 on it is not its
    // own.
    LOG(g_log, INFO_level, "[%s] PRG[%zu] pmt[%u] pid=%u at %s\n", tc->cfg.source, tc->nprogs,
        walk.index, tc->pmt_pid[walk.index], ptag(tc));
    ++tc->nprogs;
  }
  LOG(g_log, DEBUG_level, "%s: [%s] %zu programs read from PAT (%u sections) at %s\n", __func__,
      tc->cfg.source, tc->nprogs, last + 1, ptag(tc));
  if (!TABLE_HOLDS(tc, tc->nprogs))
    return;
  note_numbers(tc, &tc->pat, last);
  pids_rebuild(tc);
}

void another_PAT(tsan_ctx *tc, psi_section *sec) {
  const bool is_first_section = !tc->new_pat;
  if (is_first_section && is_seen_section(&tc->seen_pat, sec) && !tc->cfg.trk.pat_pmt_pkt)
    return;
  if (is_first_section) {
    tc->new_pat = static_cast<psi_block *>(W_calloc(__func__, 1, sizeof(psi_block)));
    if (!tc->new_pat)
      return;
  }
  if (tc->cfg.trk.pat_pmt_pkt)
    LOG(g_log, INFO_level, "%s: (%p) new PAT is being compiled at %s\n", __func__,
        static_cast<void *>(tc), ptag(tc));

  if (!psi_block_add(tc->new_pat, sec)) {
    LOG(g_log, DEBUG_level, "%s: (%p) not all sections gathered yet at %s\n", __func__,
        static_cast<void *>(tc), ptag(tc));
    return;
  }
  if (tc->cfg.trk.pat_pmt_pkt)
    LOG(g_log, INFO_level, "%s: new PAT ready for comparison at %s\n", __func__, ptag(tc));
  const bool is_equal = psi_table_compare(tc->pat.sec, tc->new_pat->sec);
  const unsigned last = psi_get_lastsection(sec->data);
  if (!is_equal && merge_PATs(tc, last))
    tc->seen_pat.size = 0; // what changed nothing before can do so now
  else if (is_first_section)
    remember_section(&tc->seen_pat, sec);
  note_numbers(tc, tc->new_pat, last);
  free_new_pat(tc);
}
