// What comes without being cut into packets: bytes in pieces, and datagrams.
#include <algorithm>
#include <cerrno>
#include <memory>
#include <new>

#include "audit/audit.h"
#include "input/fed_source.h"
#include "input/framing.h"
#include "misc/sized_record.h"
#include "mpegts/constants.h"

struct audit_feed_ctx {
  audit_feed_ctx(audit_t to, size_t packet_size) : audit(to), packets(source, packet_size) {}

  audit_t audit;
  fed_source source;
  framing packets;
  uint64_t bytes = 0;
  int code = 0; // with which all ended
  bool has_begun = false;
};

namespace {

// Where memory was refused, the rest is taken all the same.
bool goes_on(int code) {
  return code == 0 || code == ENOMEM;
}

int begin(audit_feed_ctx &feed) {
  feed.has_begun = feed.packets.start(1);
  const uint64_t leading = feed.packets.leading_bytes();
  return feed.has_begun && leading != 0 ? audit_leading(feed.audit, leading) : 0;
}

int follow(audit_feed_ctx &feed, const framing_step &step) {
  size_t count = 0;
  const int rc = audit_follow(feed.audit, step.bytes, step.count, feed.packets.packet_size(),
                              step.offset, &count);
  feed.packets.took(count);
  return rc;
}

int take_step(audit_feed_ctx &feed, const framing_step &step) {
  switch (step.what) {
  case framing_step::PACKETS:
    return follow(feed, step);
  case framing_step::BAD_SYNC:
    return audit_sync_byte(feed.audit, step.offset);
  case framing_step::LOSS:
    return audit_sync_loss(feed.audit, step.offset, step.lost_bytes);
  default:
    return 0;
  }
}

// Takes what the bytes at hand hold.
int read_on(audit_feed_ctx &feed) {
  int result = feed.has_begun ? 0 : begin(feed);
  while (feed.has_begun && goes_on(result)) {
    const framing_step step = feed.packets.next(SIZE_MAX);
    if (step.what == framing_step::STARVED || step.what == framing_step::END)
      break;
    const int rc = take_step(feed, step);
    result = rc != 0 ? rc : result;
  }
  if (!goes_on(result))
    feed.code = result;
  return result;
}

} // namespace

int audit_datagram(audit_t audit, const uint8_t *bytes, size_t size, size_t stride,
                   uint64_t offset) {
  if (stride < TS_PKT_SIZE)
    return EINVAL;
  const size_t whole = size / stride, rest = size % stride;
  const auto is_in_sync = [&](size_t at) { return bytes[at * stride] == TS_SYNC_BYTE; };
  int result = 0;
  for (size_t at = 0, next; at < whole && goes_on(result); at = next) {
    const bool in_sync = is_in_sync(at);
    for (next = at + 1; next < whole && is_in_sync(next) == in_sync;)
      ++next;
    const size_t count = next - at;
    const uint64_t place = offset + at * stride;
    const int rc = in_sync      ? audit_packets(audit, bytes + at * stride, count, stride, place)
                   : count == 1 ? audit_sync_byte(audit, place)
                                : audit_sync_loss(audit, place, count * stride);
    result = rc != 0 ? rc : result;
  }
  if (rest == 0 || !goes_on(result))
    return result;
  const int rc = audit_sync_loss(audit, offset + whole * stride, rest);
  return rc != 0 ? rc : result;
}

audit_feed_t audit_feed_init(audit_t audit, size_t packet_size, int *err) {
  constexpr size_t sizes[] = {0, 188, 192, 204, 208};
  int code = EINVAL;
  try {
    if (std::ranges::count(sizes, packet_size) != 0)
      return std::make_unique<audit_feed_ctx>(audit, packet_size).release();
  } catch (const std::bad_alloc &) {
    code = ENOMEM;
  }
  if (err)
    *err = code;
  return nullptr;
}

int audit_feed(audit_feed_t feed, const uint8_t *bytes, size_t size) {
  if (feed->code != 0)
    return feed->code;
  feed->bytes += size;
  feed->source.feed({bytes, size});
  const int rc = read_on(*feed);
  if (feed->code == 0)
    feed->source.keep();
  return rc;
}

int audit_feed_end(audit_feed_t feed) {
  feed->source.finish();
  const int rc = feed->code != 0 ? feed->code : read_on(*feed);
  feed->code = feed->code != 0 ? feed->code : EINVAL;
  return rc;
}

void audit_feed_free(audit_feed_t feed) {
  delete feed;
}

int audit_get_feed(audit_feed_t feed, audit_feed_info *info) {
  audit_feed_info filled = {};
  filled.packet_size = feed->packets.packet_size();
  filled.bytes = feed->bytes;
  filled.leading_bytes = feed->packets.leading_bytes();
  filled.tail_bytes = feed->packets.tail_bytes();
  return give_record(filled, info);
}
