#include <ctime>

#include "tsanalyze/clock.h"
#include "tsanalyze/ctx.h"
#include "tsanalyze/pmt.h"

namespace {

void dump_tracks(FILE *out, const program_info &pg, size_t i) {
  fprintf(out, "\tTracks:\n");
  for (size_t j = 0; j < pg.nstreams; ++j) {
    const stream_info &stm = pg.stm[j];
    fprintf(out, "\t\t[%zu:%zu] %c(pid%u) [%s]: P/A: %lu/%lu\n", i, j, stm.stype, stm.pid,
            streamtype_name(stm.scode), stm.count, stm.count);
  }
  fprintf(out, "\n");
}

void dump_packets(FILE *out, const sa_stats &stat) {
  fprintf(out, "\t++ Packets:\n");
  fprintf(out, "\t\tprocessed/analyzed:    %lu/%lu\n", stat.count, stat.count);
  fprintf(out, "\t\tprocessed V/A/S:       %lu/%lu/%lu\n", stat.video, stat.audio, stat.other);
  fprintf(out, "\t\tanalyzed  V/A/S:       %lu/%lu/%lu\n", stat.video, stat.audio, stat.other);
  fprintf(out, "\n");
}

void dump_alerts(FILE *out, const pg_alert_count &alert) {
  fprintf(out, "\t++ Alerts:\n");
  fprintf(out, "\t\tAV delta:          %lu\n", alert.av_deltaplus);
  fprintf(out, "\t\tAV zero:           %lu\n", alert.av_delta0);
  fprintf(out, "\t\tPCR delta:         %lu\n", alert.pcr_delta);
  fprintf(out, "\t\tPCR frequency:     %lu\n", alert.pcr_freq);
  fprintf(out, "\t\tCC-BRK:            %lu\n", alert.cc_break);
  fprintf(out, "\t\tCC-RST:            %lu\n", alert.cc_reset);
  fprintf(out, "\t\tPMT-DIFF:          %lu\n", alert.pmt_diff);
  fprintf(out, "\t\tPID-NDAT:          %lu\n", alert.pid_ndat);
  fprintf(out, "\n");
}

void dump_program(FILE *out, const program_info &pg, size_t i) {
  fprintf(out, "\t---- PRG(%zu):%zu streams, PMT(%u) PCR(%u) ----\n", i, pg.nstreams,
          pg.curr_pmt_pid, pg.pcr_pid);
  dump_tracks(out, pg, i);
  dump_packets(out, pg.stat);
  dump_alerts(out, pg.alert);
  fprintf(out, "\t------------------------------------------\n");
}

} // namespace

void tsan_dump_stats(FILE *out, tsan_t ctx) {
  flockfile(out);
  fprintf(out, "tsan_stats BEGIN\n");
  fprintf(out, "\tProcessed/analyzed             %lu/%lu\n", ctx->ptotal, ctx->atotal);
  fprintf(out, "\tPackets start-skipped:         %lu\n", ctx->pre_skipped);
  fprintf(out, "\tPrograms:                      %zu %s\n\n", ctx->nprogs,
          ctx->nprogs < 2 ? "" : "(MPTS)");
  fprintf(out, "\tStream-scope ALERTS:\n");
  fprintf(out, "\t\tLOST-SYNC:         %lu\n", ctx->gac.lost_sync);
  fprintf(out, "\t\tPAT-DIFF:          %lu\n", ctx->gac.pat_diff);
  fprintf(out, "\t\tCC-MLR:            %lu\n\n", ctx->gac.cc_mlr);
  for (size_t i = 0; i < ctx->nprogs; ++i)
    dump_program(out, ctx->pg[i], i);
  fprintf(out, "tsan_stats END\n");
  funlockfile(out);
  ctx->last_stats_dumped = wall_seconds();
}
