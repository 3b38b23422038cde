#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>

#include "input/packet_file.h"
#include "log/statement.h"
#include "meta/app_info.h"
#include "outputs/exit_status.h"
#include "outputs/outputs.h"
#include "outputs/terminal.h"
#include "tassert/tassert.h"
#include "tsa/audit_run.h"
#include "tsa/config.h"
#include "tsa/options.h"
#include "tsa/usage.h"
#include "tsanalyze/tsan.h"

LOG_MODULE(0);

namespace {

volatile sig_atomic_t g_quit;

// What a run holds.
struct run_state {
  tsan_t ctx = nullptr;
  packet_file file;
  run_result result; // `bytes` were delivered by all blocks, `records` analyzed
  run_request request;
  outputs out;
};

// Asks the read loop to stop. Prints "\nSIG(%d)\n" by hand: formatted output is not to be had
// inside a signal handler.
void handle_quit(int sig) {
  const int saved_errno = errno;
  char text[16];
  char *pos = text + sizeof text;
  *--pos = '\n';
  *--pos = ')';
  for (int rest = sig; rest > 0; rest /= 10)
    *--pos = static_cast<char>('0' + rest % 10);
  pos -= 5;
  memcpy(pos, "\nSIG(", 5);
  const int fd = g_cfg.out.takes_stdout() ? STDERR_FILENO : STDOUT_FILENO;
  [[maybe_unused]] const ssize_t n = write(fd, pos, static_cast<size_t>(text + sizeof text - pos));
  g_quit = 1;
  errno = saved_errno;
}

// A closed standard descriptor is opened on /dev/null, so that no file takes its number.
void open_std_descriptors() {
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd)
    if (fcntl(fd, F_GETFD) == -1)
      open("/dev/null", O_RDWR);
}

void open_logs() {
  log_default(g_log, stderr);
  log_set_group(g_log, mk_n64_tag("FSCN"));
  log_default(g_access_log, stdout);
  log_set_pid(g_access_log, getpid());
}

const char *app_info() {
  return get_custom_app_info(g_app_name, g_app_descr, nullptr);
}

// Goes to the first record asked for. Returns 0 or -1.
int seek_start(packet_file &file) {
  if (g_cfg.start_rec <= 1)
    return 0;
  const auto offset = static_cast<off_t>((static_cast<uint64_t>(g_cfg.start_rec) - 1) * PKT_SIZE);
  if (const int err = file.seek(offset)) {
    LOG(g_log, ERR_level, "fseek(, %ld, SEEK_SET) ERROR(%d): %s\n", offset, err, strerror(err));
    return -1;
  }
  LOG(g_log, INFO_level, "Moved to record %ld\n", g_cfg.start_rec);
  return 0;
}

// The limit is held against the count before the packet, so that one more is analyzed than counted.
bool limit_reached(const run_state &run) {
  return tsan_get_pidx(run.ctx) > run.result.records;
}

// Of so many packets, how many go before the limit has to be looked at.
size_t until_limit(const run_state &run, size_t packets) {
  if (g_cfg.max_records == 0)
    return packets;
  return std::min(packets - 1, g_cfg.max_records - run.result.records) + 1;
}

void count_records(run_state &run, size_t passed) {
  run.result.records += passed;
  if (g_cfg.max_records != 0)
    run.result.records = std::min<size_t>(run.result.records, g_cfg.max_records);
}

// A packet without sync byte: the analyzer tells so, and ends the run. But it can be that the file
// has lost these bytes while they were looked at; then that is where it ends.
int analyze_without_sync(run_state &run, std::span<const uint8_t> &rest) {
  const size_t size = rest.size();
  rest = run.file.again(size);
  run.result.bytes -= size - rest.size();
  if (rest.empty())
    return 0;
  run.out.sync_lost(rest);
  const int rc = tsan_process(run.ctx, rest.data());
  rest = rest.subspan(PKT_SIZE);
  count_records(run, rc == 0 ? 1 : 0);
  return rc;
}

// Analyzes a block, until a signal comes, to the record limit or the analyzer's word.
int analyze_block(run_state &run, std::span<const uint8_t> rest) {
  int rc = 0;
  while (rc == 0 && !rest.empty() && !g_quit && !limit_reached(run)) {
    const size_t count = run.out.watches_packets() ? 1 : until_limit(run, rest.size() / PKT_SIZE);
    const uint64_t before = tsan_get_pidx(run.ctx);
    const tsan_many done = tsan_process_many(run.ctx, rest.data(), count, PKT_SIZE);
    if (run.out.watches_packets() && tsan_get_pidx(run.ctx) != before)
      run.out.packet(rest.data());
    count_records(run, done.count);
    rest = rest.subspan(done.count * PKT_SIZE);
    rc = done.code == TSAN_NO_SYNC ? analyze_without_sync(run, rest) : done.code;
  }
  return rc;
}

// Reads to the end of the file, the record limit or the analyzer's word; after a signal the rest of
// the file is still read and counted in bytes.
int read_loop(run_state &run) {
  int rc = 0;
  while (rc == 0 && !limit_reached(run)) {
    const std::span block = run.file.next_block();
    if (block.empty())
      break;
    run.result.bytes += block.size();
    run.out.line.advance(run.result.bytes);
    rc = analyze_block(run, block);
  }
  return rc;
}

run_end end_of_loop(const run_state &run, int rc) {
  if (rc != 0)
    return run_end::stopped;
  if (g_quit)
    return run_end::signal;
  if (limit_reached(run))
    return run_end::limit;
  return run.file.read_errno() != 0 ? run_end::read_failed : run_end::complete;
}

void start_progress(run_state &run) {
  if (!g_cfg.out.progress)
    return;
  const uint64_t todo = run.file.remaining(), limit = g_cfg.max_records * PKT_SIZE;
  run.out.line.start(limit != 0 ? std::min(limit, todo) : todo);
}

int analyze_file(run_state &run) {
  signal(SIGINT, handle_quit);
  signal(SIGTERM, handle_quit);
  setvbuf(stdout, nullptr, _IONBF, 0); // alerts reach a pipe at once
  LOG(g_log, NORM_level, "%s STARTING. PID=%ld\n", app_info(), static_cast<long>(getpid()));
  LOG(g_log, INFO_level, "reading [%s]\n", g_cfg.fpath);

  tsan_stop_on(run.ctx, &g_quit);
  start_progress(run);
  const int rc = read_loop(run);
  run.result.end = end_of_loop(run, rc);
  run.result.file_errno = run.file.read_errno();
  run.out.line.finish();

  tsan_check_ndat(run.ctx);
  LOG(g_log, INFO_level, "%zu/%zu bytes/records read from [%s]\n", run.result.bytes,
      run.result.records, g_cfg.fpath);
  tsan_dump_stats(stderr, run.ctx);
  if (!g_cfg.out.takes_stdout())
    putchar('\n');
  return rc;
}

int run_program(int argc, char **argv, run_state &run) {
  int rc = parse_options(argc, argv);
  if (rc != 0)
    return rc;
  run.request = {.file = g_cfg.fpath,
                 .source = g_cfg.tsa.source,
                 .generator = app_info(),
                 .options = g_cfg.options,
                 .first_packet = static_cast<uint64_t>(std::max<off_t>(g_cfg.start_rec, 1)),
                 .max_packets = g_cfg.max_records};
  if (g_cfg.audit.is_on)
    return run_audit(run.request);
  if (run.out.open(g_cfg.out, run.request, g_cfg.tsa) != 0)
    return -1;
  run.ctx = tsan_init(nullptr, &g_cfg.tsa, &rc);
  if (!run.ctx)
    return rc;
  TASSERT(g_cfg.fpath[0]);
  if (const int err = run.file.open(g_cfg.fpath)) {
    fprintf(stderr, "Cannot open [%s]: %s\n", g_cfg.fpath, strerror(err));
    run.result.end = run_end::cannot_open;
    run.result.file_errno = err;
    return rc;
  }
  run.out.listen(run.ctx); // what it collects must not take the memory that the run needs
  rc = seek_start(run.file);
  return rc != 0 ? rc : analyze_file(run);
}

// Tells once, and where that still works, that lines are missing on a stream.
void report_lost_output(FILE *stream, const char *name) {
  if (ferror(stream))
    fprintf(stderr, "%s: standard %s could not be written in full\n", g_app_name, name);
}

// The one way out: every run that got as far as its options ends here.
int finish(run_state &run, int rc) {
  run.file.close();
  if (rc < 0)
    rc = EXIT_STATUS_FAILED;
  if (run.ctx) {
    run.result.status = rc;
    rc = run.out.finish(run.ctx, run.result);
    tsan_free(run.ctx);
  }
  LOG(g_log, NORM_level, "%s EXIT(%d). PID=%ld\n", app_info(), rc, static_cast<long>(getpid()));
  report_lost_output(stdout, "output");
  report_lost_output(stderr, "error");
  log_close(g_log);
  return rc;
}

} // namespace

int main(int argc, char **argv) {
  open_std_descriptors();
  signal(SIGXFSZ, SIG_IGN); // a file that must not grow is one that cannot be written
  show_control_bytes();
  if (argc <= 1)
    usage(argv[0], EXIT_STATUS_USAGE);
  open_logs();
  init_config();
  run_state run;
  return finish(run, run_program(argc, argv, run));
}
