/* Audits a stream that comes over UDP, and tells what each PID lost: audit_datagrams [PORT]
 *
 * Datagrams of 7 packets are taken from that port of the loopback, any free one without it. Findings
 * come to standard error, what each PID carried and lost to standard output when nothing has come
 * for two seconds.
 *
 *   cc audit_datagrams.c $(pkg-config --cflags --libs korva) */
#include <stdio.h>
#include <stdlib.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <korva/audit.h>

enum { PACKET = 188, LONGEST = 65536 };

static void on_finding(void *opaque, const audit_finding *f) {
  (void)opaque;
  fprintf(stderr, "%s %s PID %d at packet %llu", audit_severity_name(f->severity),
          audit_kind_name(f->kind), (int)f->pid, (unsigned long long)f->packet);
  fprintf(stderr, f->time == f->time ? ", %.3f s\n" : "\n", f->time); /* NAN: no clock yet */
}

/* A socket on the loopback; -1 after a message. */
static int open_port(unsigned port) {
  struct sockaddr_in address = {.sin_family = AF_INET,
                                .sin_port = htons((uint16_t)port),
                                .sin_addr.s_addr = htonl(INADDR_LOOPBACK)};
  socklen_t length = sizeof address;
  const int room = 4 << 20; /* for bursts; the system may give less */
  const int fd = socket(AF_INET, SOCK_DGRAM, 0);
  setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &room, sizeof room);
  if (fd == -1 || bind(fd, (struct sockaddr *)&address, length) != 0 ||
      getsockname(fd, (struct sockaddr *)&address, &length) != 0) {
    perror("UDP");
    return -1;
  }
  printf("listening on port %u\n", (unsigned)ntohs(address.sin_port));
  fflush(stdout);
  return fd;
}

/* Takes datagrams until none has come for two seconds. */
static void receive(int fd, audit_t audit) {
  static unsigned char datagram[LONGEST];
  const struct timeval pause = {.tv_sec = 2};
  uint64_t offset = 0; /* in the stream, bytes */
  for (ssize_t size; (size = recv(fd, datagram, sizeof datagram, 0)) >= 0; offset += (size_t)size) {
    audit_datagram(audit, datagram, (size_t)size, PACKET, offset);
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &pause, sizeof pause);
  }
}

static void print_pids(audit_t audit) {
  audit_pid pid = {.size = sizeof pid};
  for (size_t i = 0; audit_get_pid(audit, i, &pid) == 0; ++i)
    printf("PID %u (%s): %llu packets, %llu lost\n", (unsigned)pid.pid, pid.what,
           (unsigned long long)pid.packets, (unsigned long long)pid.lost);
  audit_report report = {.size = sizeof report};
  audit_get_report(audit, &report);
  const char *verdict = audit_verdict_name(report.verdict);
  printf("%s: %llu findings fail\n", verdict, (unsigned long long)report.fails);
}

int main(int argc, char **argv) {
  const int fd = open_port(argc > 1 ? (unsigned)strtoul(argv[1], NULL, 10) : 0);
  if (fd == -1)
    return 1;
  audit_config cfg = {.size = sizeof cfg};
  audit_default_config(AUDIT_MPEG, &cfg);
  cfg.on_finding = on_finding;
  audit_t audit = audit_init(&cfg, NULL);
  if (!audit)
    return 1;
  receive(fd, audit);
  audit_end(audit, AUDIT_COMPLETE);
  print_pids(audit);
  audit_free(audit);
  close(fd);
  return 0;
}
