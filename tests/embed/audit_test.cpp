// The audit as other programs use it: records of other versions, ends that are asked for, bytes and
// datagrams, many audits at once.
#include <cerrno>
#include <cstddef>
#include <latch>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "audit/audit.h"
#include "support/ts_builder.h"

namespace {

using audit_owner = std::unique_ptr<audit_ctx, decltype(&audit_free)>;

struct listener {
  std::string found;
  audit_t to_stop = nullptr;
};

void on_finding(void *opaque, const audit_finding *f) {
  auto &to = *static_cast<listener *>(opaque);
  to.found += std::string(audit_kind_name(f->kind)) + " " + std::to_string(f->pid) + " at " +
              std::to_string(f->packet) + " x" + std::to_string(f->events) + "\n";
  if (to.to_stop)
    audit_stop(to.to_stop);
}

audit_config config_for(listener &to) {
  audit_config cfg = {};
  cfg.size = sizeof cfg;
  audit_default_config(AUDIT_MPEG, &cfg);
  cfg.opaque = &to;
  cfg.on_finding = on_finding;
  return cfg;
}

audit_owner new_audit(listener &to) {
  const audit_config cfg = config_for(to);
  return {audit_init(&cfg, nullptr), audit_free};
}

// Seconds of a program with a PCR each 40 ms, in which every `lossy`th packet of PID 102 is lost.
ts_bytes make_capture(unsigned seconds, unsigned lossy) {
  ts_stream s;
  for (unsigned ms = 0; ms < seconds * 1000; ++ms) {
    if (ms % 100 == 0)
      s.pat({{1, 100}}), s.pmt(100, {.pcr_pid = 101, .es = {{0x1b, 101}, {3, 102}}});
    else if (ms % 40 == 5)
      s.pcr(101, 900'000 + ms * 90);
    else
      s.lose(102, ms % lossy == 1).data(102);
  }
  return s.bytes();
}

audit_report report_of(const audit_owner &audit) {
  audit_report report = {};
  report.size = sizeof report;
  EXPECT_EQ(audit_get_report(audit.get(), &report), 0);
  return report;
}

// What is found when the bytes are fed in pieces.
std::string found_in(const ts_bytes &bytes, size_t piece) {
  listener to;
  const audit_owner audit = new_audit(to);
  const audit_feed_t feed = audit_feed_init(audit.get(), 0, nullptr);
  for (size_t at = 0; at < bytes.size(); at += piece)
    EXPECT_EQ(audit_feed(feed, &bytes[at], std::min(piece, bytes.size() - at)), 0);
  EXPECT_EQ(audit_feed_end(feed), 0);
  audit_feed_info info = {};
  info.size = sizeof info;
  EXPECT_EQ(audit_get_feed(feed, &info), 0);
  EXPECT_EQ(info.bytes, bytes.size());
  audit_feed_free(feed);
  EXPECT_EQ(audit_end(audit.get(), AUDIT_COMPLETE), 0);
  return to.found;
}

} // namespace

TEST(audit_library, takes_records_of_other_versions) {
  const ts_bytes bytes = make_capture(1, 5000);
  listener to;
  struct later {
    audit_report report;
    uint64_t added;
  } later = {.report = {}, .added = 1};
  audit_config cfg = config_for(to);
  cfg.size = offsetof(audit_config, opaque); // no callback then
  const audit_owner audit(audit_init(&cfg, nullptr), audit_free);
  audit_packets(audit.get(), bytes.data() + 188, bytes.size() / 188 - 1, 188, 0);
  EXPECT_EQ(audit_end(audit.get(), AUDIT_COMPLETE), 0);
  EXPECT_EQ(to.found, "");

  later.report.size = sizeof later;
  EXPECT_EQ(audit_get_report(audit.get(), &later.report), 0);
  EXPECT_EQ(later.report.packets, bytes.size() / 188 - 1);
  EXPECT_EQ(later.added, 0u);
  EXPECT_EQ(later.report.size, sizeof later);
  later.report.packets = 7;
  later.report.size = offsetof(audit_report, packets);
  EXPECT_EQ(audit_get_report(audit.get(), &later.report), 0);
  EXPECT_EQ(later.report.packets, 7u);
  later.report.size = 0;
  EXPECT_EQ(audit_get_report(audit.get(), &later.report), EINVAL);
}

TEST(audit_library, refuses_what_cannot_be) {
  listener to;
  const auto code_of = [&](auto change) {
    audit_config cfg = config_for(to);
    change(cfg);
    int err = 0;
    EXPECT_EQ(audit_init(&cfg, &err), nullptr);
    return err;
  };
  EXPECT_EQ(code_of([](audit_config &cfg) { cfg.size = 0; }), EINVAL);
  EXPECT_EQ(code_of([](audit_config &cfg) { cfg.limits[AUDIT_PCR_MS] = -1; }), EINVAL);
  EXPECT_EQ(code_of([](audit_config &cfg) { cfg.limits[0] = std::stod("nan"); }), EINVAL);
  EXPECT_EQ(code_of([](audit_config &cfg) { cfg.profile = AUDIT_PROFILES; }), EINVAL);
  const audit_owner audit = new_audit(to);
  int err = 0;
  EXPECT_EQ(audit_feed_init(audit.get(), 189, &err), nullptr);
  EXPECT_EQ(err, EINVAL);
  audit_end(audit.get(), AUDIT_COMPLETE);
  EXPECT_EQ(audit_packet(audit.get(), make_capture(1, 5000).data(), 0), EINVAL);
}

TEST(audit_library, ends_where_a_callback_asks_for_it) {
  const ts_bytes bytes = make_capture(10, 4001);
  listener to;
  const audit_owner audit = new_audit(to);
  to.to_stop = audit.get();
  EXPECT_EQ(audit_packets(audit.get(), bytes.data(), bytes.size() / 188, 188, 0), ECANCELED);
  EXPECT_EQ(audit_packet(audit.get(), bytes.data(), 0), ECANCELED);
  const audit_feed_t feed = audit_feed_init(audit.get(), 188, nullptr);
  EXPECT_EQ(audit_feed(feed, bytes.data(), bytes.size()), ECANCELED);
  EXPECT_EQ(audit_feed(feed, bytes.data(), bytes.size()), ECANCELED);
  audit_feed_free(feed);
  EXPECT_EQ(audit_end(audit.get(), AUDIT_LIMIT), 0);
  // A loss is delivered at the first PCR more than a second behind it.
  EXPECT_EQ(to.found, "CC-LOSS 102 at 4044 x1\n");
  EXPECT_EQ(report_of(audit).packets, 5057u);
}

TEST(audit_library, takes_datagrams) {
  ts_bytes bytes = make_capture(1, 5000);
  bytes.resize(7 * 188 + 100);
  for (const unsigned bad : {1u, 3u, 4u})
    bytes[bad * 188] = 0;
  listener to;
  const audit_owner audit = new_audit(to);
  EXPECT_EQ(audit_datagram(audit.get(), bytes.data(), bytes.size(), 187, 0), EINVAL);
  EXPECT_EQ(audit_datagram(audit.get(), bytes.data(), bytes.size(), 188, 0), 0);
  audit_end(audit.get(), AUDIT_COMPLETE);
  const audit_report report = report_of(audit);
  EXPECT_EQ(report.packets, 5u);
  EXPECT_EQ(report.lost_bytes, 2 * 188 + 100u);
  EXPECT_EQ(report.findings[AUDIT_SYNC_BYTE], 1u);
}

TEST(audit_library, finds_the_same_in_eight_threads) {
  ts_bytes capture[8];
  std::string alone[8], together[8];
  for (unsigned i = 0; i < 8; ++i) {
    capture[i] = make_capture(4, 300 + 100 * i);
    capture[i].insert(capture[i].begin() + 100'000, i, 0); // sync is lost
    alone[i] = found_in(capture[i], SIZE_MAX);
    EXPECT_NE(alone[i].find("CC-LOSS"), std::string::npos);
    EXPECT_EQ(alone[i].find("SYNC-LOSS") != std::string::npos, i != 0);
  }
  std::latch start(8);
  std::vector<std::jthread> threads;
  for (unsigned i = 0; i < 8; ++i)
    threads.emplace_back([&, i] {
      start.arrive_and_wait();
      together[i] = found_in(capture[i], 1316 + i);
    });
  threads.clear();
  for (unsigned i = 0; i < 8; ++i)
    EXPECT_EQ(together[i], alone[i]);
}
