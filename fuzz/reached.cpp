#include "fuzz/reached.h"

#include <cstdio>
#include <map>
#include <string>

#include "tsanalyze/ctx.h"

namespace {

std::map<std::string, size_t> g_reached = {
    {"AV-DELTA0", 0},
    {"AV-DELTA+", 0},
    {"PCR-DELTA", 0},
    {"PCR-FREQ", 0},
    {"CC-BRK", 0},
    {"CC-RST", 0},
    {"CC-MLR", 0},
    {"PMT-DIFF", 0},
    {"PAT-DIFF", 0},
    {"PID-NDAT", 0},
    {"tc->pmt_pid[tc->nprogs]", 0},
    {"tc->nprogs", 0},
    {"tc->nprogs < MAX_PMTS", 0},
    {"prog(tc)->pcr_pid", 0},
};

void note_count(const char *what, uint64_t count) {
  if (count != 0)
    note_reached(what);
}

} // namespace

void note_reached(const char *what) {
  ++g_reached[what];
}

void note_alerts(tsan_t ctx) {
  note_count("PAT-DIFF", ctx->gac.pat_diff);
  note_count("CC-MLR", ctx->gac.cc_mlr);
  for (const program_info &pg : ctx->pg) {
    note_count("AV-DELTA0", pg.alert.av_delta0);
    note_count("AV-DELTA+", pg.alert.av_deltaplus);
    note_count("PCR-DELTA", pg.alert.pcr_delta);
    note_count("PCR-FREQ", pg.alert.pcr_freq);
    note_count("CC-BRK", pg.alert.cc_break);
    note_count("CC-RST", pg.alert.cc_reset);
    note_count("PMT-DIFF", pg.alert.pmt_diff);
    note_count("PID-NDAT", pg.alert.pid_ndat);
  }
}

bool print_reached() {
  bool all = true;
  for (const auto &[what, inputs] : g_reached) {
    printf("%-26s %zu inputs%s\n", what.c_str(), inputs, inputs == 0 ? "  NOT REACHED" : "");
    all = all && inputs != 0;
  }
  return all;
}
