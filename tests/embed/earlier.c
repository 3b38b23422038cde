/* A program of the first version of the library, with the records as they were in its headers: it
 * runs with every later version of the same name. earlier FILE */
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

typedef struct tsan_config {
  bool is_enabled;
  char source[64];
  size_t max_skip_pkts, max_pdts_delta, max_pcr_delta, pcr_freq_ms;
  bool access_log_alerts;
  size_t dump_stats_period, max_ndat_pcount;
  bool cc_track;
  long cc_max_ms0_ms;
  bool trk[8];
  bool no_rlog;
} tsan_config;

typedef struct tsan_alert {
  size_t size;
  unsigned kind;
  int program;
  uint32_t pid;
  uint64_t pkt_idx;
  const char *ptag;
  uint64_t last_pcr, dgram;
  int32_t last_cc, current_cc;
  int64_t elapsed_ms;
  uint64_t count;
  bool is_pts;
  uint64_t stamp;
  uint32_t ref_pid;
  uint64_t ref_stamp;
  uint32_t pcr_pid;
  uint64_t old_pcr, pcr, delta_ms;
  size_t added, deleted, programs, old_tracks, new_tracks, track;
} tsan_alert;

typedef struct tsan_sample {
  size_t size;
  unsigned kind;
  int program;
  uint32_t pid;
  bool is_pts, is_checked;
  uint64_t pkt_idx, last_pcr, ms, pcr, stamp, ref_stamp;
} tsan_sample;

typedef struct tsan_readout {
  size_t size;
  void *opaque;
  void (*on_alert)(void *opaque, const tsan_alert *alert);
  void (*on_sample)(void *opaque, const tsan_sample *sample);
  bool measure_all;
} tsan_readout;

typedef struct tsan_program_stats {
  size_t size, streams;
  uint32_t pmt_pid, pcr_pid;
  uint64_t packets[8], alerts[8], averages[24];
  uint32_t listed_pid;
} tsan_program_stats;

typedef struct tsan_stream_stats {
  size_t size;
  uint32_t pid;
  char kind;
  uint8_t type;
  const char *name;
  uint64_t processed, analyzed;
} tsan_stream_stats;

void tsan_default_config(tsan_config *cfg);
void *tsan_init(const char *src, const tsan_config *cfg, int *err);
void tsan_free(void *ctx);
int tsan_process(void *ctx, const uint8_t *bytes);
void tsan_check_ndat(void *ctx);
int tsan_set_readout(void *ctx, const tsan_readout *readout);
int tsan_get_program_stats(void *ctx, size_t program, tsan_program_stats *stats);
int tsan_get_stream_stats(void *ctx, size_t program, size_t stream, tsan_stream_stats *stats);

enum { GUARD = 0x5a };

static unsigned kinds[13];
static uint64_t changed_at, intervals;

static void on_alert(void *opaque, const tsan_alert *alert) {
  (void)opaque;
  ++kinds[alert->kind];
  if (alert->kind == 8 && alert->old_tracks == 3 && alert->new_tracks == 4)
    changed_at = alert->pkt_idx;
}

static void on_sample(void *opaque, const tsan_sample *sample) {
  (void)opaque;
  intervals += sample->kind == 0 && sample->pcr > sample->last_pcr;
}

int main(int argc, char **argv) {
  FILE *in = argc > 1 ? fopen(argv[1], "rb") : NULL;
  struct {
    tsan_config cfg;
    unsigned char behind[64];
  } settings;
  memset(&settings, GUARD, sizeof settings);
  tsan_default_config(&settings.cfg);
  for (size_t i = 0; i < sizeof settings.behind; ++i)
    if (settings.behind[i] != GUARD)
      return 1;
  void *ctx = tsan_init("earlier", &settings.cfg, NULL);
  tsan_readout readout;
  memset(&readout, GUARD, sizeof readout); /* whatever stands behind measure_all */
  readout.size = sizeof readout;
  readout.on_alert = on_alert;
  readout.on_sample = on_sample;
  readout.measure_all = true;
  if (!in || !ctx || tsan_set_readout(ctx, &readout) != 0)
    return 2;
  unsigned char packet[188];
  while (fread(packet, sizeof packet, 1, in) == 1 && tsan_process(ctx, packet) == 0) {
  }
  tsan_check_ndat(ctx);
  tsan_program_stats program = {.size = sizeof program};
  tsan_stream_stats stream = {.size = sizeof stream};
  if (tsan_get_program_stats(ctx, 0, &program) != 0 ||
      tsan_get_stream_stats(ctx, 0, 0, &stream) != 0)
    return 3;
  tsan_free(ctx);
  fclose(in);
  if (program.listed_pid != 4096 || program.pcr_pid != 257 || stream.analyzed != 377)
    return 4;
  return kinds[0] == 2 && kinds[8] == 1 && kinds[9] == 1 && changed_at == 979 && intervals > 10 ? 0
                                                                                                : 5;
}
