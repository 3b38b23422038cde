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

} // namespace

void mk_ptag(tsan_ctx *tc) {
  const dgram_info &dat = *tc->dat;
  tag_writer tag{tc->ptag, tc->ptag + MAX_PTAG - 2}; // at most 62 characters

  if (dat.is_pat)
    tag << "PAT[";
  else if (dat.is_pmt)
    tag << static_cast<uint64_t>(dat.ipg) << ":M[";
  else if (dat.ipg >= 0)
    tag << static_cast<uint64_t>(dat.ipg) << ":" << static_cast<uint64_t>(dat.istm) << "[";
  else
    tag << "pkt[";
  tag << tc->last_pkt_idx << "]";

  if (dat.ipg >= 0 && dat.program->got_pcr)
    tag << ":(pcr=" << dat.program->last_pcr << ")+" << tc->last_pkt_idx - dat.program->pcr_pktnum;

  *tag.pos = '\0';
  tc->ptag_ptotal = tc->ptotal;
}
