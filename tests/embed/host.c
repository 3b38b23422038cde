/* A program with names of its own that the library uses inside, and with the records as they were
 * in the first version: host FILE */
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include <korva/log.h>
#include <korva/version.h>

typedef struct config {
  bool is_enabled;
  char source[64];
  size_t skip, pdts, pcr, pcr_freq;
  bool terse;
  size_t dump_period, ndat;
  bool cc;
  long cc_ms;
  bool trk[8], no_rlog;
} config;

typedef struct alert {
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
} alert;

typedef struct readout {
  size_t size;
  void *opaque;
  void (*on_alert)(void *opaque, const alert *found);
  void *on_sample;
  bool measure_all;
} readout;

typedef struct program_stats {
  size_t size, streams;
  uint32_t pmt_pid, pcr_pid;
  uint64_t packets[8], alerts[8], averages[24];
  uint32_t listed_pid;
} program_stats;

#ifdef __cplusplus
extern "C" {
#endif
void tsan_default_config(config *cfg);
void *tsan_init(const char *src, const config *cfg, int *err);
void tsan_free(void *ctx);
int tsan_process(void *ctx, const uint8_t *bytes);
int tsan_set_readout(void *ctx, const readout *listener);
int tsan_get_program_stats(void *ctx, size_t program, program_stats *stats);

enum { GUARD = 0x5a };
char g_log[64] = {GUARD}, g_access_log[64] = {GUARD}, g_mod_ll[512] = {GUARD};
int usage = GUARD, ptag = GUARD, str2fac = GUARD, log_statement = GUARD; /* crash when called */
#ifdef __cplusplus
}
#endif

static unsigned kinds[13];

static void on_alert(void *opaque, const alert *found) {
  (void)opaque;
  kinds[found->kind] += found->kind != 8 || (found->old_tracks == 3 && found->new_tracks == 4);
}

int main(int argc, char **argv) {
  FILE *in = argc > 1 ? fopen(argv[1], "rb") : NULL, *log = tmpfile();
  if (!in || !log)
    return 1;
  korva_log_default(korva_log(), log);
  korva_log_set_group(korva_log(), "A LONG GROUP");
  config cfg[2];
  readout listener;
  memset(cfg, GUARD, sizeof cfg);
  memset(&listener, GUARD, sizeof listener); /* also what stands behind measure_all */
  tsan_default_config(cfg);
  void *ctx = tsan_init("host", cfg, NULL);
  listener.size = sizeof listener;
  listener.on_alert = on_alert;
  listener.on_sample = NULL;
  listener.measure_all = false;
  program_stats program;
  program.size = sizeof program;
  unsigned char packet[188];
  if (tsan_set_readout(ctx, &listener) != 0)
    return 2;
  while (fread(packet, sizeof packet, 1, in) == 1 && tsan_process(ctx, packet) == 0) {
  }
  if (tsan_get_program_stats(ctx, 0, &program) != 0 || program.listed_pid != 4096)
    return 3;
  tsan_free(ctx);
  char line[256] = "";
  rewind(log);
  if (!fgets(line, sizeof line, log) || !strstr(line, "  A LONG   ALERT CC-BRK [host] "))
    return 4;
  if (kinds[0] != 2 || kinds[8] != 1 || cfg[1].source[0] != GUARD)
    return 5;
  if (g_log[0] + g_access_log[0] + g_mod_ll[0] != 3 * GUARD || g_log[1] + g_mod_ll[1] != 0)
    return 6;
  return strcmp(korva_version(), KORVA_VERSION) != 0 ||
         korva_version_number() != KORVA_VERSION_NUMBER;
}
