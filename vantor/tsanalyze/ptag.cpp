#include "tsanalyze/ptag.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <string_view>

namespace {

// Appends to a fixed buffer; what does not fit is cut.
struct tag_writer {
  char *pos;
  char *end;

  tag_writer &operator<<(std::string_view text) {
    const size_t n = std::min(text.size(), static_cast<size_t>(end - pos));
    memcpy(pos, text.data(), n);
    pos += n;
    return *this;
  }

  tag_writer &operator<<(uint64_t number) {
    char digits[20];
    const auto [last, err] = std::to_chars(digits, digits + sizeof digits, number);
    return *this << std::string_view(digits, last);
  }
};

packet_tag tag_of(const tsan_ctx *tc) {
  const dgram_info &dat = *tc->dat;
  packet_tag tag = {};
  tag.kind = packet_tag::PKT;
  tag.idx = tc->last_pkt_idx;
  if (dat.is_pat)
    tag.kind = packet_tag::PAT;
  else if (dat.is_pmt)
    tag.kind = packet_tag::PMT;
  else if (dat.ipg >= 0)
    tag.kind = packet_tag::STREAM;
  tag.ipg = dat.ipg;
  tag.istm = dat.istm;
  if (dat.ipg >= 0 && dat.program->got_pcr) {
    tag.has_pcr = true;
    tag.pcr = dat.program->last_pcr;
    tag.behind = tc->last_pkt_idx - dat.program->pcr_pktnum;
  }
  return tag;
}

} // namespace

const packet_tag &take_tag(tsan_ctx *tc) {
  if (tc->tag_ptotal != tc->ptotal) {
    tc->tag = tag_of(tc);
    tc->tag_ptotal = tc->ptotal;
  }
  return tc->tag;
}

void write_tag(const packet_tag &tag, char *text) {
  tag_writer out{text, text + MAX_PTAG - 2}; // at most 62 characters
  switch (tag.kind) {
  case packet_tag::NONE:
    *text = '\0';
    return;
  case packet_tag::PAT:
    out << "PAT[";
    break;
  case packet_tag::PMT:
    out << static_cast<uint64_t>(tag.ipg) << ":M[";
    break;
  case packet_tag::STREAM:
    out << static_cast<uint64_t>(tag.ipg) << ":" << static_cast<uint64_t>(tag.istm) << "[";
    break;
  case packet_tag::PKT:
    out << "pkt[";
    break;
  }
  out << tag.idx << "]";
  if (tag.has_pcr)
    out << ":(pcr=" << tag.pcr << ")+" << tag.behind;
  *out.pos = '\0';
}

void mk_ptag(tsan_ctx *tc) {
  write_tag(take_tag(tc), tc->ptag);
  tc->ptag_ptotal = tc->ptotal;
}
