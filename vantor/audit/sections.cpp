#include "audit/sections.h"

#include <algorithm>
#include <new>

#include <bitstream/mpeg/ts.h>

#include <bitstream/mpeg/psi/psi.h>

#include "audit/findings.h"
#include "audit/recurrence.h"
#include "audit/tables.h"

namespace {

enum : uint8_t {
  TABLE_NIT = 0x40,
  TABLE_SDT = 0x42,
  TABLE_EIT_PF = 0x4E,
  TABLE_TDT = 0x70,
  TABLE_TOT = 0x73,
  LAST_WITH_SYNTAX = 0x6F,
  STUFFING = 0xFF
};
enum : size_t { HEADER_SIZE = 3, SHORT_LENGTH = 1021, LONG_LENGTH = 4093, LEAST_LENGTH = 9 };

// What becomes of the rest of a packet behind some bytes of a section: it is read on, read on from
// the next section that starts, or not read.
enum class reading { goes_on, resumes, ends };

bool is_one_of(uint8_t id, std::initializer_list<uint8_t> ids) {
  return std::ranges::find(ids, id) != ids.end();
}

bool belongs(psi_role role, uint8_t id) {
  switch (role) {
  case psi_role::pat:
    return id == 0x00;
  case psi_role::cat:
    return id == 0x01;
  case psi_role::pmt:
    return id == 0x02;
  case psi_role::nit:
    return is_one_of(id, {0x40, 0x41, 0x72});
  case psi_role::sdt:
    return is_one_of(id, {0x42, 0x46, 0x4A, 0x72});
  case psi_role::eit:
    return (id >= 0x4E && id <= 0x6F) || id == 0x72 || id == 0x77;
  case psi_role::rst:
    return is_one_of(id, {0x71, 0x72});
  case psi_role::tdt:
    return is_one_of(id, {0x70, 0x72, 0x73});
  default:
    return false;
  }
}

bool is_si(psi_role role) {
  return role >= psi_role::nit;
}

bool has_syntax(const uint8_t *header) {
  return header[1] & 0x80;
}

bool is_possible(psi_role role, const uint8_t *header) {
  const uint8_t id = header[0];
  const size_t length = psi_get_length(header);
  const bool is_short = id <= 0x02 || is_one_of(id, {0x40, 0x41, 0x42, 0x46, 0x4A});
  if (length > (is_short ? SHORT_LENGTH : LONG_LENGTH))
    return false;
  if (has_syntax(header))
    return length >= LEAST_LENGTH;
  return id > LAST_WITH_SYNTAX || !belongs(role, id);
}

void drop(section_gather &g) {
  g.is_open = false;
  g.have = g.need = 0;
  g.bytes.clear();
}

void raise_syntax(audit_ctx &a, uint16_t pid, int16_t table_id) {
  event e = event_here(a, AUDIT_PSI_SYNTAX, pid);
  e.table_id = table_id;
  raise(a, std::move(e));
}

void raise_with_table(audit_ctx &a, audit_kind kind, uint16_t pid, uint8_t table_id) {
  event e = event_here(a, kind, pid);
  e.table_id = table_id;
  raise(a, std::move(e));
}

void take_si(audit_ctx &a, section_bytes section) {
  const auto count = [&](audit_table table) {
    if (watch &w = a.tables.recurrence[table]; w.is_on)
      came(a, w);
  };
  switch (section[0]) {
  case TABLE_NIT:
    return count(AUDIT_NIT);
  case TABLE_SDT:
    return count(AUDIT_SDT);
  case TABLE_EIT_PF:
    if (section[6] <= 1)
      count(section[6] == 0 ? AUDIT_EIT_P : AUDIT_EIT_F);
    return;
  case TABLE_TDT:
    return count(AUDIT_TDT);
  default:
    return;
  }
}

bool has_right_crc(audit_ctx &a, uint16_t pid, section_bytes section) {
  if (!has_syntax(section.data()) && section[0] != TABLE_TOT)
    return true;
  if (has_syntax(section.data()) && std::ranges::equal(held_section(a, pid, section), section))
    return true;
  return section.size() >= HEADER_SIZE + PSI_CRC_SIZE && psi_check_crc(section.data());
}

void judge_whole(audit_ctx &a, uint16_t pid, section_bytes section) {
  if (!has_right_crc(a, pid, section)) {
    raise_with_table(a, AUDIT_PSI_CRC, pid, section[0]);
    return;
  }
  if (has_syntax(section.data()) && !psi_get_current(section.data()))
    return;
  switch (a.records[pid].role) {
  case psi_role::pat:
    return take_pat(a, section);
  case psi_role::cat:
    return take_cat(a, section);
  case psi_role::pmt:
    return take_pmt(a, pid, section);
  default:
    return take_si(a, section);
  }
}

// With its three header bytes it is known whether a section belongs here and can be.
reading judge_header(audit_ctx &a, uint16_t pid, section_gather &g) {
  const psi_role role = a.records[pid].role;
  const uint8_t id = g.header[0];
  const bool is_ours = belongs(role, id);
  if (is_si(role) && !in_dvb(a) && !is_ours) {
    drop(g);
    return reading::ends;
  }
  if (!is_possible(role, g.header)) {
    drop(g);
    raise_syntax(a, pid, id);
    return reading::resumes;
  }
  g.is_skipped = !is_ours;
  g.need = static_cast<uint16_t>(HEADER_SIZE + psi_get_length(g.header));
  if (!is_ours && role != psi_role::pmt)
    raise_with_table(a, AUDIT_PSI_TABLE, pid, id);
  if (is_ours) {
    g.bytes.reserve(g.need);
    g.bytes.assign(g.header, g.header + HEADER_SIZE);
  }
  return reading::goes_on;
}

// Takes from `bytes` what belongs to the open section, and judges it when it is whole. Afterwards
// it is open still, or `bytes` begin behind it.
reading feed(audit_ctx &a, uint16_t pid, section_gather &g, pkt_bytes &bytes) {
  while (g.have < HEADER_SIZE && !bytes.empty()) {
    g.header[g.have++] = bytes[0];
    bytes = bytes.subspan(1);
  }
  if (g.have < HEADER_SIZE)
    return reading::goes_on;
  if (g.need == 0)
    if (const reading rest = judge_header(a, pid, g); rest != reading::goes_on)
      return rest;
  const size_t count = std::min<size_t>(g.need - g.have, bytes.size());
  if (!g.is_skipped)
    g.bytes.insert(g.bytes.end(), bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(count));
  g.have = static_cast<uint16_t>(g.have + count);
  bytes = bytes.subspan(count);
  if (g.have < g.need)
    return reading::goes_on;
  // The gathering is closed first: a new PAT can take the PID's role away.
  const bool is_skipped = g.is_skipped;
  std::vector<uint8_t> section;
  section.swap(g.bytes);
  drop(g);
  if (!is_skipped)
    judge_whole(a, pid, section);
  if (section_gather *same = a.records[pid].gather; same->bytes.capacity() == 0) {
    section.clear();
    same->bytes.swap(section); // its memory serves the next one
  }
  return reading::goes_on;
}

// The bytes before the first section that starts in a packet complete the one that is open.
reading complete(audit_ctx &a, uint16_t pid, section_gather &g, pkt_bytes bytes) {
  if (!g.is_open)
    return reading::resumes;
  const reading rest = feed(a, pid, g, bytes);
  if (rest == reading::goes_on && g.is_open) {
    drop(g);
    raise_syntax(a, pid, -1);
  }
  return rest;
}

void start_sections(audit_ctx &a, uint16_t pid, section_gather &g, pkt_bytes bytes) {
  while (!bytes.empty() && bytes[0] != STUFFING && a.records[pid].role != psi_role::none) {
    g.is_open = true;
    if (feed(a, pid, g, bytes) != reading::goes_on)
      return;
  }
}

section_gather &gather_of(audit_ctx &a, uint16_t pid) {
  section_gather *&g = a.records[pid].gather;
  if (!g)
    g = new section_gather;
  return *g;
}

void gather(audit_ctx &a, uint16_t pid, section_gather &g, pkt_bytes payload, bool is_unit_start,
            bool follows) {
  if (!follows)
    drop(g);
  if (payload.empty())
    return;
  if (!is_unit_start) {
    if (g.is_open)
      feed(a, pid, g, payload);
    return;
  }
  const size_t pointer = ts_read_once(payload.data());
  if (1 + pointer > payload.size()) {
    drop(g);
    raise_syntax(a, pid, -1);
    return;
  }
  if (complete(a, pid, g, payload.subspan(1, pointer)) == reading::ends)
    return;
  start_sections(a, pid, g, payload.subspan(1 + pointer));
}

} // namespace

void take_psi_packet(audit_ctx &a, uint16_t pid, pkt_bytes payload, bool is_unit_start,
                     bool follows) {
  section_gather &g = gather_of(a, pid);
  try {
    gather(a, pid, g, payload, is_unit_start, follows);
  } catch (const std::bad_alloc &) {
    drop(g); // part of it may be missing
    throw;
  }
}

void take_scrambled_psi_packet(audit_ctx &a, uint16_t pid) {
  if (section_gather *g = a.records[pid].gather)
    drop(*g);
  if (!is_si(a.records[pid].role))
    raise(a, event_here(a, AUDIT_PSI_SCRAMBLED, pid));
}
