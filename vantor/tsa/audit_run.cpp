#include "tsa/audit_run.h"

#include <unistd.h>

#include <algorithm>
#include <cinttypes>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <memory>

#include "input/byte_source.h"
#include "input/framing.h"
#include "log/statement.h"
#include "outputs/audit_json.h"
#include "outputs/audit_lines.h"
#include "outputs/audit_page.h"
#include "outputs/audit_tables.h"
#include "outputs/baseline_writer.h"
#include "outputs/exit_status.h"
#include "outputs/junit_audit.h"
#include "outputs/progress.h"
#include "outputs/run_files.h"
#include "tsa/audit_clips.h"
#include "tsa/config.h"

LOG_MODULE(0);

namespace {

volatile sig_atomic_t g_stop;

// At once, when it is to be known where in the file a time is.
constexpr uint64_t CLIP_PACKETS = 16;

struct audit_closer {
  void operator()(audit_t audit) const { audit_free(audit); }
};

// What a run holds.
struct audit_run {
  explicit audit_run(const run_request &asked) : request(asked) {}

  const run_request &request;
  byte_source file;
  framing packets{file, g_cfg.audit.packet_size};
  std::unique_ptr<audit_ctx, audit_closer> audit;
  audit_facts facts;
  run_files files;
  audit_page_data collected;  // for the page and --junit
  baseline_writer found_now;  // for --baseline-write
  bool is_incomplete = false; // memory was refused for it
  clip_target clips;
  clip_plan plan;       // of these
  framing_step at_hand; // when their times are noted
  bool has_all_clips = true;
  progress line;
};

// Without SA_RESTART: a read that waits for a pipe comes back.
void take_signals() {
  struct sigaction action = {};
  action.sa_handler = [](int) { g_stop = 1; };
  for (const int number : {SIGINT, SIGTERM})
    sigaction(number, &action, nullptr);
}

int level_of(audit_severity severity) {
  constexpr int levels[] = {NORM_level, WARN_level, ERR_level};
  return levels[severity];
}

// Does what may need memory, until that is refused.
template <typename Work> void collect(audit_run &run, Work work) {
  if (run.is_incomplete)
    return;
  try {
    work();
  } catch (const std::bad_alloc &) {
    run.is_incomplete = true;
  }
}

// Of the record of a packet.
uint64_t record_begin(const audit_run &run, uint64_t sync_byte) {
  return sync_byte - (run.packets.packet_size() == 192 ? 4 : 0);
}

void on_sample(void *opaque, const audit_sample *sample) {
  auto &run = *static_cast<audit_run *>(opaque);
  collect(run, [&] {
    if (run.files.page.is_open())
      run.collected.add(*sample);
    if (run.clips.directory && sample->kind == AUDIT_PCR_INTERVAL)
      run.plan.add_time(sample->time, record_begin(run, run.at_hand.offset),
                        record_begin(run, run.at_hand.offset) +
                            run.at_hand.count * run.packets.packet_size());
  });
}

const allowed_finding *take_baseline(audit_run &run, const audit_finding &f) {
  const found finding = {audit_kind_name(f.kind), f.pid, f.program_number, f.time, f.last_time};
  const allowed_finding *entry = g_cfg.out.allowed.cover(finding);
  if (entry)
    run.facts.allowed.add(f);
  if (run.files.baseline.is_open())
    collect(run, [&] { run.found_now.add(finding, entry); });
  return entry;
}

void on_finding(void *opaque, const audit_finding *f) {
  auto &run = *static_cast<audit_run *>(opaque);
  const allowed_finding *entry = take_baseline(run, *f);
  run.line.count_alert();
  if (!g_cfg.tsa.no_rlog)
    LOG(g_log, level_of(f->severity), "%s\n", human_line(*f, run.request.source, entry).c_str());
  if (g_cfg.tsa.access_log_alerts)
    LOG(g_access_log, MIN_level, "%s\n", terse_line(*f, run.request.source, entry).c_str());
  if (run.files.json.is_open())
    json_audit_finding(run.files.json, *f, entry);
  if (run.files.page.is_open() || run.files.junit.is_open())
    collect(run, [&] { run.collected.add(*f, entry); });
  if (run.clips.directory)
    collect(run, [&] { run.plan.add(*f); });
}

// Hands over what comes next. Returns how many packets that was.
size_t take_step(audit_run &run, const framing_step &step) {
  const audit_t audit = run.audit.get();
  size_t count = step.count;
  if (step.what == framing_step::PACKETS) {
    audit_follow(audit, step.bytes, count, run.packets.packet_size(), step.offset, &count);
    run.packets.took(count);
  } else if (step.what == framing_step::BAD_SYNC) {
    audit_sync_byte(audit, step.offset);
  } else if (step.what == framing_step::LOSS) {
    audit_sync_loss(audit, step.offset, step.lost_bytes);
  }
  return count;
}

run_end end_of_reading(const audit_run &run, run_end otherwise) {
  if (g_stop)
    return run_end::signal;
  return run.file.read_errno() != 0 ? run_end::read_failed : otherwise;
}

// Reads until the capture ends, or enough was read, or a signal came.
run_end read_packets(audit_run &run) {
  uint64_t left = run.request.max_packets != 0 ? run.request.max_packets : UINT64_MAX;
  while (left != 0 && !g_stop) {
    const framing_step step =
        run.packets.next(run.clips.directory ? std::min(left, CLIP_PACKETS) : left);
    if (step.what == framing_step::END)
      break;
    run.at_hand = step;
    left -= take_step(run, step);
    run.line.advance(run.packets.bytes_read());
  }
  return left == 0 ? run_end::limit : end_of_reading(run, run_end::complete);
}

void start_progress(audit_run &run) {
  const uint64_t last = run.request.first_packet - 1 + run.request.max_packets;
  const uint64_t wanted =
      run.request.max_packets != 0 ? last * run.packets.packet_size() : run.facts.size;
  if (g_cfg.out.progress)
    run.line.start(std::min(wanted, run.facts.size));
}

audit_ending ending_of(run_end end) {
  if (end == run_end::limit)
    return AUDIT_LIMIT;
  return end == run_end::complete ? AUDIT_COMPLETE : AUDIT_INTERRUPTED;
}

void count_indicators(audit_run &run) {
  audit_indicator indicator = {};
  indicator.size = sizeof indicator;
  while (audit_get_indicator(run.audit.get(), run.facts.indicators, &indicator) == 0) {
    ++run.facts.indicators;
    run.facts.not_measurable += indicator.state == AUDIT_STATE_NOT_MEASURABLE;
  }
}

// What was read, and with -m the size of the file all the same.
void count_bytes(audit_run &run) {
  run.facts.result.bytes = run.packets.bytes_read();
  if (run.facts.result.end == run_end::limit)
    run.facts.result.bytes = std::max(run.facts.result.bytes, run.facts.size);
  if (run.request.max_packets == 0)
    run.facts.tail = run.packets.tail_bytes();
}

// After the run, and of what it has read.
void cut_clips(audit_run &run) {
  if (!run.clips.directory)
    return;
  if (g_stop) {
    fputs("No clips: the run was interrupted\n", stderr);
    return;
  }
  if (run.is_incomplete)
    fputs("Not all clips: memory was refused during the run\n", stderr);
  if (run.facts.report.undelivered != 0)
    fprintf(stderr, "No clip of %" PRIu64 " findings that are only counted\n",
            run.facts.report.undelivered);
  const size_t size = run.packets.packet_size();
  const clip_range range = {run.request.file, size,
                            run.facts.leading + (run.request.first_packet - 1) * size,
                            run.packets.bytes_read()};
  run.has_all_clips = make_clips(run.clips, run.plan, range, run.files.json) && !run.is_incomplete;
}

void leave_unjudged(audit_run &run, audit_verdict verdict) {
  audit_report &report = run.facts.report;
  report.verdict = verdict;
  report.duration = report.bitrate = NAN;
  report.cbr = -1;
}

// Judges the packets. Returns the status of the run.
int judge(audit_run &run) {
  audit_config cfg = run.facts.settings;
  cfg.first_packet = run.request.first_packet;
  cfg.opaque = &run;
  cfg.on_finding = on_finding;
  cfg.on_sample = run.files.page.is_open() || run.clips.directory ? on_sample : nullptr;
  run.audit.reset(audit_init(&cfg, nullptr));
  if (!run.audit) {
    fprintf(stderr, "No memory for the audit\n");
    leave_unjudged(run, AUDIT_INCOMPLETE);
    run.facts.report.out_of_memory = true;
    return EXIT_STATUS_NOMEM;
  }
  const audit_t audit = run.audit.get();
  run.facts.leading = run.packets.leading_bytes();
  if (run.facts.leading != 0)
    audit_leading(audit, run.facts.leading);
  start_progress(run);
  run.facts.result.end = read_packets(run);
  audit_end(audit, ending_of(run.facts.result.end));
  run.line.finish();
  run.facts.report.size = sizeof run.facts.report;
  audit_get_report(audit, &run.facts.report);
  leave_out_allowed(run.facts);
  if (run.files.json.is_open())
    json_audit_records(run.files.json, audit, run.facts);
  count_bytes(run);
  count_indicators(run);
  cut_clips(run);
  return run.facts.report.out_of_memory ? EXIT_STATUS_NOMEM : EXIT_STATUS_OK;
}

// No packet is there to be judged.
int report_nothing(audit_run &run) {
  run.facts.result.bytes = run.facts.leading = run.packets.bytes_read();
  leave_unjudged(run, AUDIT_NOTHING_CHECKED);
  if (is_unreadable(run.facts.result.end))
    return EXIT_STATUS_OK; // as without --audit
  fprintf(stderr, "No packet to audit in [%s]\n", run.request.file);
  return EXIT_STATUS_FAILED;
}

void write_header(audit_run &run) {
  run.facts.packet_size = run.packets.packet_size();
  if (run.files.json.is_open())
    json_audit_header(run.files.json, run.request, run.facts);
}

int read_file(audit_run &run) {
  LOG(g_log, NORM_level, "%s STARTING. PID=%ld\n", run.request.generator,
      static_cast<long>(getpid()));
  LOG(g_log, INFO_level, "reading [%s]\n", run.request.file);
  const bool has_packet = run.packets.start(run.request.first_packet);
  write_header(run);
  if (has_packet)
    return judge(run);
  run.facts.result.end = end_of_reading(run, run_end::failed);
  return report_nothing(run);
}

int open_file(audit_run &run) {
  const int err = run.file.open(run.request.file);
  if (err == 0) {
    run.facts.size = run.file.remaining();
    run.file.stop_at(&g_stop);
    take_signals();
    return read_file(run);
  }
  fprintf(stderr, "Cannot open [%s]: %s\n", run.request.file, strerror(err));
  run.facts.result.end = run_end::cannot_open;
  write_header(run);
  return report_nothing(run);
}

void print_tables(const audit_run &run) {
  try {
    fputs(audit_tables(run.audit.get(), run.facts).c_str(), stderr);
  } catch (const std::bad_alloc &) {
    fputs("No memory for the tables\n", stderr);
  }
}

int write_files(audit_run &run) {
  run_result &result = run.facts.result;
  const audit_report &report = run.facts.report;
  run.collected.finish(run.request.first_packet - 1 + report.packets, report.duration);
  const audited_run whole = {run.request, run.facts, run.audit.get(), run.collected,
                             run.is_incomplete};
  result.status = run.files.complete_baseline(g_cfg.out, run.found_now, run.request.source,
                                              run.is_incomplete, result.status);
  result.status = run.files.complete(run.files.junit, g_cfg.out.junit, result.status,
                                     [&](output_file &file) { junit_of_audit(file, whole); });
  return run.files.complete(
      g_cfg.out, result.status,
      [&](output_file &page, int status) {
        result.status = status;
        audit_page(page, whole);
      },
      [&](output_file &json, int status) {
        result.status = status;
        json_audit_report(json, run.facts, g_cfg.out.allowed);
      });
}

// There is a finding that --exit-alerts asks for; those that are only counted count, too.
bool is_hit(const audit_facts &facts) {
  bool hit = g_cfg.audit.exit_on_fail && facts.report.fails != 0;
  for (size_t kind = 0; kind < AUDIT_KINDS; ++kind)
    hit |= (g_cfg.audit.exit_kinds >> kind & 1) != 0 &&
           facts.report.findings[kind] > facts.allowed.by_kind[kind];
  return hit || is_unreadable(facts.result.end);
}

// Tells how it went. Returns the status of the run.
int finish(audit_run &run, int status) {
  const bool tells = g_cfg.audit.exit_on_fail || g_cfg.audit.exit_kinds != 0;
  if (status == EXIT_STATUS_OK && !run.has_all_clips)
    status = EXIT_STATUS_FAILED;
  run.facts.result.status =
      status == EXIT_STATUS_OK && tells && is_hit(run.facts) ? EXIT_STATUS_ALERTS : status;
  print_tables(run);
  if (g_cfg.out.allowed.is_on())
    g_cfg.out.allowed.tell_rest(stderr);
  return write_files(run);
}

} // namespace

int run_audit(const run_request &request) {
  audit_run run(request);
  run.facts.settings = make_audit_config(g_cfg.audit);
  run.clips.directory = g_cfg.audit.clips;
  if (!start_clips(run.clips, request.file) || !run.files.open(g_cfg.out))
    return EXIT_STATUS_FAILED;
  setvbuf(stdout, nullptr, _IONBF, 0); // findings reach a pipe at once
  return finish(run, open_file(run));
}
