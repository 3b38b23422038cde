/* Analyzes a stream that arrives in datagrams of 7 packets, as over UDP: datagrams [FILE]
 *
 * Without FILE they are read from standard input. Alerts come to standard error; losses that hit
 * several streams of one datagram alike are reported once more, as CC-MLR. Standard output gets the
 * same as terse lines, and once a second the STAT records.
 *
 *   cc datagrams.c $(pkg-config --cflags --libs korva) */
#include <stdio.h>
#include <string.h>

#include <korva/log.h>
#include <korva/readout.h>
#include <korva/tsan.h>

enum { PACKET = 188, DATAGRAM = 7 * PACKET };

static void count_alert(void *opaque, const tsan_alert *alert) {
  unsigned *counts = opaque;
  if ((unsigned)alert->kind < TSAN_ALERT_KINDS) /* a later library may know others */
    ++counts[alert->kind];
}

/* Hands one datagram over. Returns 0 to go on. */
static int receive(tsan_t ctx, const unsigned char *bytes, size_t size) {
  tsan_next_seg(ctx);
  for (size_t at = 0; at + PACKET <= size; at += PACKET) {
    const int rc = tsan_process(ctx, bytes + at);
    if (rc != 0)
      return rc;
  }
  tsan_check_dump_stats(stderr, ctx); /* the report too, when it is time for the records */
  return 0;
}

int main(int argc, char **argv) {
  FILE *in = argc > 1 ? fopen(argv[1], "rb") : stdin;
  if (!in) {
    perror(argv[1]);
    return 1;
  }
  korva_log_default(korva_log(), stderr);
  korva_log_set_group(korva_log(), "DGRAM");
  korva_log_default(korva_access_log(), stdout);

  tsan_config cfg;
  tsan_default_config(&cfg);
  cfg.access_log_alerts = true;
  cfg.dump_stats_period = 1;
  tsan_t ctx = tsan_init(argc > 1 ? argv[1] : "stdin", &cfg, NULL);
  if (!ctx)
    return 1;
  tsan_survive(ctx, true); /* whatever its tables say */
  unsigned counts[TSAN_ALERT_KINDS] = {0};
  const tsan_readout readout = {.size = sizeof readout, .opaque = counts, .on_alert = count_alert};
  tsan_set_readout(ctx, &readout);

  unsigned char datagram[DATAGRAM];
  int rc = 0;
  for (size_t size; rc == 0 && (size = fread(datagram, 1, DATAGRAM, in)) > 0;)
    rc = receive(ctx, datagram, size);
  tsan_next_seg(ctx); /* closes the last datagram */
  tsan_check_ndat(ctx);

  for (tsan_alert_kind kind = 0; kind < TSAN_ALERT_KINDS; ++kind)
    if (counts[kind] != 0)
      printf("%s: %u\n", tsan_alert_name(kind), counts[kind]);
  tsan_free(ctx);
  if (in != stdin)
    fclose(in);
  return rc == 0 ? 0 : 2;
}
