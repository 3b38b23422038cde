// A whole capture through the audit: packets handed over as they stand, or bytes through framing.
//
// An input is four bytes of settings and then packets of 188 bytes; the rest behind the last whole
// packet is only looked at by framing. Sync bytes are set where packets are handed over.

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string>
#include <vector>

#include "audit/audit.h"
#include "fuzz/packet_mutator.h"
#include "input/byte_source.h"
#include "input/framing.h"
#include "outputs/audit_lines.h"

namespace {

// What cannot be, whatever the bytes.
void require(bool holds) {
  if (!holds)
    abort();
}

struct listener {
  uint64_t packets = 0; // handed over
  uint64_t delivered[AUDIT_KINDS] = {};
  size_t text = 0;
};

void on_finding(void *opaque, const audit_finding *f) {
  auto &to = *static_cast<listener *>(opaque);
  ++to.delivered[f->kind];
  require(f->events > 0 && f->packet > 0 && f->packet <= f->last_packet);
  require(!(f->time < 0) && !std::isinf(f->time) && !std::isinf(f->last_time));
  require(f->pid < 8192 && f->last_cc < 16 && f->cc < 16);
  to.text += human_line(*f, "fuzz").size() + terse_line(*f, "fuzz").size();
}

audit_config make_config(std::span<const uint8_t> settings, listener &to) {
  audit_config cfg = {};
  cfg.size = sizeof cfg;
  audit_default_config(static_cast<audit_profile>(settings[0] & 3), &cfg);
  for (size_t i = 0; i < AUDIT_LIMITS; ++i)
    if (settings[3] >> i % 8 & 1)
      cfg.limits[i] = i < 8 ? 0 : 20;
  cfg.opaque = &to;
  cfg.on_finding = on_finding;
  cfg.on_sample = [](void *opaque, const audit_sample *sample) {
    static_cast<listener *>(opaque)->text += sample->pid;
  };
  return cfg;
}

// One by one or in runs, each with a stride; between them what only framing sees.
void hand_over(audit_t audit, std::span<const uint8_t> settings, std::span<const uint8_t> bytes,
               listener &to) {
  constexpr size_t strides[] = {188, 192, 204, 208};
  const size_t stride = strides[settings[0] >> 3 & 3], in_run = 1 + settings[1] % 8;
  std::vector<uint8_t> run(in_run * stride);
  const size_t all = bytes.size() / PACKET_SIZE;
  for (size_t done = 0; done < all;) {
    const size_t count = std::min(in_run, all - done);
    for (size_t i = 0; i < count; ++i) {
      memcpy(&run[i * stride], &bytes[(done + i) * PACKET_SIZE], PACKET_SIZE);
      run[i * stride] = 0x47;
    }
    audit_packets(audit, run.data(), count, stride, done * stride);
    done += count;
    to.packets += count;
    if (settings[2] != 0 && done % settings[2] == 0) {
      audit_sync_byte(audit, done * stride);
      audit_sync_loss(audit, done * stride, settings[1]);
      ++to.packets;
    }
  }
}

void read_bytes(audit_t audit, std::span<const uint8_t> bytes, listener &to) {
  const int fd = memfd_create("capture", MFD_CLOEXEC);
  require(fd != -1 && write(fd, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()));
  byte_source source;
  require(source.open(("/proc/self/fd/" + std::to_string(fd)).c_str()) == 0);
  framing packets(source, 0);
  bool is_over = !packets.start(1);
  if (!is_over && packets.leading_bytes() != 0)
    audit_leading(audit, packets.leading_bytes());
  while (!is_over) {
    const framing_step step = packets.next(UINT64_MAX);
    size_t count = step.count;
    if (step.what == framing_step::PACKETS) {
      audit_follow(audit, step.bytes, count, packets.packet_size(), step.offset, &count);
      packets.took(count);
    } else if (step.what == framing_step::BAD_SYNC) {
      audit_sync_byte(audit, step.offset);
    } else if (step.what == framing_step::LOSS) {
      audit_sync_loss(audit, step.offset, step.lost_bytes);
    }
    to.packets += count;
    is_over = step.what == framing_step::END;
  }
  require(packets.bytes_read() == bytes.size());
  close(fd);
}

// The same bytes in pieces, each of which is gone when the next one comes.
void require_same_when_fed(std::span<const uint8_t> settings, std::span<const uint8_t> bytes,
                           audit_ending ending, const listener &read) {
  listener to;
  const audit_config cfg = make_config(settings, to);
  const audit_t audit = audit_init(&cfg, nullptr);
  const audit_feed_t feed = audit_feed_init(audit, 0, nullptr);
  for (size_t at = 0, piece = 1 + settings[1] * 8; at < bytes.size(); at += piece) {
    const auto next = bytes.subspan(at, std::min(piece, bytes.size() - at));
    const std::vector<uint8_t> gone(next.begin(), next.end());
    require(audit_feed(feed, gone.data(), gone.size()) == 0);
  }
  require(audit_feed_end(feed) == 0);
  audit_feed_free(feed);
  audit_end(audit, ending);
  audit_free(audit);
  require(to.text == read.text && std::ranges::equal(to.delivered, read.delivered));
}

template <typename record>
size_t count_records(audit_t audit, int (*get)(audit_t, size_t, record *)) {
  record one = {};
  one.size = sizeof one;
  size_t count = 0;
  while (get(audit, count, &one) == 0)
    ++count;
  return count;
}

void look_at_records(audit_t audit, const listener &to) {
  audit_report report = {};
  report.size = sizeof report;
  require(audit_get_report(audit, &report) == 0 && report.packets == to.packets);
  uint64_t undelivered = 0;
  for (size_t i = 0; i < AUDIT_KINDS; ++i) {
    require(to.delivered[i] <= report.findings[i]);
    undelivered += report.findings[i] - to.delivered[i];
  }
  require(undelivered == report.undelivered);
  require(count_records(audit, audit_get_program) == report.programs);
  audit_stream stream = {};
  stream.size = sizeof stream;
  for (size_t i = 0; i < report.programs; ++i)
    for (size_t j = 0; audit_get_stream(audit, i, j, &stream) == 0; ++j)
      require(strchr("VASD", stream.kind) != nullptr);
  uint64_t packets = 0;
  audit_pid pid = {};
  pid.size = sizeof pid;
  for (size_t i = 0; audit_get_pid(audit, i, &pid) == 0; ++i)
    packets += pid.packets;
  require(packets <= report.packets);
  require(count_records(audit, audit_get_indicator) > 0);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);
int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size < SETTINGS_SIZE)
    return -1;
  const std::span settings(data, SETTINGS_SIZE), bytes(data + SETTINGS_SIZE, size - SETTINGS_SIZE);
  listener to;
  const audit_config cfg = make_config(settings, to);
  const audit_t audit = audit_init(&cfg, nullptr);
  require(audit != nullptr);
  const auto ending = static_cast<audit_ending>(settings[0] >> 5 & 1);
  if (settings[0] & 4)
    read_bytes(audit, bytes, to);
  else
    hand_over(audit, settings, bytes, to);
  audit_end(audit, ending);
  if (settings[0] & 4)
    require_same_when_fed(settings, bytes, ending, to);
  look_at_records(audit, to);
  audit_free(audit);
  return 0;
}
