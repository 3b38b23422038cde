#include "tsanalyze/section.h"

#include <algorithm>
#include <cstring>

#include <bitstream/mpeg/ts.h>

#include <bitstream/mpeg/psi/psi.h>

#include <bitstream/mpeg/psi/pat.h>

#include <bitstream/mpeg/psi/pmt_print.h>

#include "syswrap/syswrap.h"

namespace {

// One step of the library's walk over the inner loop of a descriptor, in its own 8-bit arithmetic.
struct inner_loop {
  uint8_t tag;
  uint8_t header; // bytes of the descriptor before the loop
  uint8_t (*step)(const uint8_t *entry);
};

uint8_t step_51(const uint8_t *entry) {
  constexpr uint8_t link_bytes[] = {0, 2, 6, 6, 8};
  const uint8_t info = desc51n_get_cell_linkage_info(entry);
  return static_cast<uint8_t>(DESC51_DATA_SIZE + desc51n_get_elementary_cell_field_length(entry) +
                              (info < std::size(link_bytes) ? link_bytes[info] : 0));
}

uint8_t step_5b(const uint8_t *entry) {
  return static_cast<uint8_t>(DESC5B_DATA_SIZE + desc5bn_get_networkname_length(entry));
}

// Descriptors on which the library's validation stands still once a step wraps to 0.
constexpr inner_loop inner_loops[] = {
    {0x45, DESC45_HEADER_SIZE,
     [](const uint8_t *entry) {
       return static_cast<uint8_t>(DESC45_DATA_SIZE + desc45n_get_data_length(entry));
     }},
    {0x51, DESC51_HEADER_SIZE, step_51},
    {0x5b, DESC5B_HEADER_SIZE, step_5b},
    {0x5c, DESC5B_HEADER_SIZE, step_5b},
    {0x5d, DESC5D_HEADER_SIZE,
     [](const uint8_t *entry) {
       return static_cast<uint8_t>(DESC5D_DATA_SIZE + desc5dn_get_provider_name_length(entry) +
                                   desc5dn_get_service_name_length(entry));
     }},
    {0x5e, DESC5E_HEADER_SIZE,
     [](const uint8_t *entry) {
       return static_cast<uint8_t>(DESC5E_DATA_SIZE + desc5en_get_text_length(entry));
     }},
    {0x6c, DESC6C_HEADER_SIZE,
     [](const uint8_t *entry) {
       return static_cast<uint8_t>(DESC6C_DATA_SIZE + desc6cn_get_subcell_info_loop_length(entry));
     }},
    {0x6d, DESC6D_HEADER_SIZE,
     [](const uint8_t *entry) {
       return static_cast<uint8_t>(DESC6D_DATA_SIZE + desc6dn_get_subcell_info_loop_length(entry));
     }},
};

// True when the library's validation of this descriptor would never end.
bool validation_hangs(const uint8_t *desc) {
  const auto *loop = std::ranges::find(inner_loops, desc_get_tag(desc), &inner_loop::tag);
  if (loop == std::end(inner_loops))
    return false;

  const uint8_t *entry = desc + loop->header;
  int left = desc_get_length(desc) - (loop->header - DESC_HEADER_SIZE);
  while (left > 0) {
    const uint8_t step = loop->step(entry);
    if (step == 0)
      return true;
    entry += step;
    left -= step;
  }
  return false;
}

// The descriptors of a section, in their order.
struct descriptor_list {
  uint8_t *at[TS_PKT_SIZE / DESC_HEADER_SIZE];
  size_t count = 0;
};

// Cuts each descriptor of a loop of `size` bytes to the loop. A single byte at its end, no
// descriptor, gets the reserved tag 0.
void cut_descriptors(uint8_t *descs, size_t size, descriptor_list *list) {
  size_t at = 0;
  while (at + DESC_HEADER_SIZE <= size) {
    uint8_t *desc = descs + at;
    const size_t room = size - at - DESC_HEADER_SIZE;
    if (desc_get_length(desc) > room)
      desc_set_length(desc, static_cast<uint8_t>(room));
    list->at[list->count++] = desc;
    at += DESC_HEADER_SIZE + desc_get_length(desc);
  }
  if (at < size)
    descs[at] = 0;
}

// Gives the reserved tag 0 to descriptors whose validation would never end, so that they are shown
// as unknown ones. A walk can read on behind its descriptor, into what is changed here: so the last
// one is judged first.
void disarm_descriptors(const descriptor_list &list) {
  for (size_t i = list.count; i-- > 0;)
    if (validation_hangs(list.at[i]))
      desc_set_tag(list.at[i], 0);
}

uint16_t cut(uint16_t length, size_t room) {
  return static_cast<uint16_t>(std::min<size_t>(length, room));
}

} // namespace

void take_section(ts_pkt pkt, psi_section *sec) {
  *sec = {};
  const size_t offset = ts_payload_offset(pkt) + (ts_unit_start(pkt) ? 1 : 0);
  if (!ts_payload_flag(pkt) || offset >= TS_PKT_SIZE)
    return;
  sec->avail = TS_PKT_SIZE - offset;
  memcpy(sec->data, pkt.bytes + offset, sec->avail);
}

bool guard_pat(psi_section *sec) {
  uint8_t *pat = sec->data;
  if (sec->avail < PAT_HEADER_SIZE ||
      psi_get_length(pat) < PAT_HEADER_SIZE + PSI_CRC_SIZE - PSI_HEADER_SIZE)
    return false;
  // Sections are numbered in 8 bits, and the library counts in 8 bits up to and including the last.
  if (psi_get_lastsection(pat) == 255)
    return false;
  psi_set_length(pat, cut(psi_get_length(pat), sec->avail - PSI_HEADER_SIZE));
  return true;
}

bool guard_pmt(psi_section *sec) {
  uint8_t *pmt = sec->data;
  if (sec->avail < PMT_HEADER_SIZE)
    return false;
  psi_set_length(pmt,
                 std::max<uint16_t>(cut(psi_get_length(pmt), sec->avail - PSI_HEADER_SIZE), 1));

  descriptor_list list;
  // Where the ES loop ends and the CRC begins.
  const size_t end = psi_get_length(pmt) + size_t{PSI_HEADER_SIZE} - PSI_CRC_SIZE;
  pmt_set_desclength(
      pmt, cut(pmt_get_desclength(pmt), end < PMT_HEADER_SIZE ? 0 : end - PMT_HEADER_SIZE));
  cut_descriptors(pmt + PMT_HEADER_SIZE, pmt_get_desclength(pmt), &list);

  size_t at = PMT_HEADER_SIZE + size_t{pmt_get_desclength(pmt)};
  while (at + PMT_ES_SIZE <= end) {
    uint8_t *es = pmt + at;
    pmtn_set_desclength(es, cut(pmtn_get_desclength(es), end - at - PMT_ES_SIZE));
    cut_descriptors(es + PMT_ES_SIZE, pmtn_get_desclength(es), &list);
    at += PMT_ES_SIZE + size_t{pmtn_get_desclength(es)};
  }
  if (at < end) // a partial last entry
    psi_set_length(pmt, static_cast<uint16_t>(at + PSI_CRC_SIZE - PSI_HEADER_SIZE));
  disarm_descriptors(list);
  return true;
}

void remember_section(seen_section *seen, const psi_section *sec) {
  seen->size = sec->avail;
  memcpy(seen->data, sec->data, sec->avail);
}

bool is_seen_section(const seen_section *seen, const psi_section *sec) {
  return seen->size != 0 && seen->size == sec->avail &&
         memcmp(seen->data, sec->data, seen->size) == 0;
}

uint8_t *dup_psi_sec(const psi_section *sec) {
  // The library reads the eight bytes of the header and compares three bytes past the length.
  const size_t length = std::max<size_t>(psi_get_length(sec->data), PSI_HEADER_SIZE_SYNTAX1);
  auto *copy = static_cast<uint8_t *>(W_calloc(__func__, 1, length + PSI_HEADER_SIZE));
  if (copy)
    memcpy(copy, sec->data, length);
  return copy;
}

void psi_block_init(psi_block *psi) {
  psi_table_init(psi->sec);
  psi->is_complete = false;
}

void psi_block_free(psi_block *psi) {
  psi_table_free(psi->sec);
  psi_block_init(psi);
}

bool psi_block_add(psi_block *psi, psi_section *sec) {
  if (!guard_pat(sec))
    return false;
  uint8_t *copy = dup_psi_sec(sec);
  if (!copy)
    return false;
  psi->is_complete = psi_table_section(psi->sec, copy);
  return psi->is_complete;
}
