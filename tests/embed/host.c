/* A program that has names of its own which the library uses inside: host FILE */
#include <stdio.h>
#include <string.h>

#include <korva/log.h>
#include <korva/tsan.h>
#include <korva/version.h>

#ifdef __cplusplus
extern "C" {
#endif

char g_log[64] = "mine", g_access_log[64] = "mine", g_mod_ll[64] = "mine", prog[64] = "mine";
static unsigned calls;

#define MINE(name)                                                                                 \
  void name(void);                                                                                 \
  void name(void) {                                                                                \
    ++calls;                                                                                       \
  }
MINE(usage)
MINE(ptag)
MINE(str2fac)
MINE(log_default)
MINE(tassert_fail)
MINE(log_statement)

#ifdef __cplusplus
}
#endif

int main(int argc, char **argv) {
  FILE *in = argc > 1 ? fopen(argv[1], "rb") : NULL;
  FILE *log = tmpfile();
  if (!in || !log)
    return 1;
  korva_log_default(korva_log(), log);
  korva_log_set_group(korva_log(), "A LONG GROUP");
  tsan_config cfg;
  tsan_default_config(&cfg);
  tsan_t ctx = tsan_init("host", &cfg, NULL);
  unsigned char packet[188];
  while (fread(packet, sizeof packet, 1, in) == 1 && tsan_process(ctx, packet) == 0) {
  }
  tsan_free(ctx);
  fclose(in);

  char line[256] = "";
  rewind(log);
  if (!fgets(line, sizeof line, log) || !strstr(line, "  A LONG   ALERT CC-BRK [host] "))
    return 2;
  for (const char *own[] = {g_log, g_access_log, g_mod_ll, prog, NULL}, **name = own; *name; ++name)
    if (strcmp(*name, "mine") != 0)
      return 3;
  usage();
  return calls == 1 && strcmp(korva_version(), KORVA_VERSION) == 0 &&
                 korva_version_number() == KORVA_VERSION_NUMBER
             ? 0
             : 4;
}
