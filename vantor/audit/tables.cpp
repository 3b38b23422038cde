#include "audit/tables.h"

#include <algorithm>
#include <unordered_set>
#include <utility>

#include "audit/findings.h"
#include "audit/listing.h"
#include "audit/pmt.h"
#include "audit/recurrence.h"

namespace {

enum : uint8_t { TABLE_PAT = 0x00, TABLE_PMT = 0x02, DESC_CA = 0x09 };
enum : uint16_t {
  PID_NIT = 0x10,
  PID_EIT = 0x12,
  PID_TDT = 0x14,
  NETWORK_PID_DEFAULT = 0x1F,
  PID_NULL = 0x1FFF
};
enum : size_t { PAT_LOOP_AT = 8, PAT_ENTRY = 4 };

uint8_t version_of(section_bytes section) {
  return section[5] >> 1 & 0x1F;
}

void raise_table_event(audit_ctx &a, audit_kind kind, uint16_t pid, uint8_t table_id,
                       std::unique_ptr<change_lists> change = nullptr, int32_t number = -1) {
  event e = event_here(a, kind, pid);
  if (kind != AUDIT_PAT_CHANGE && kind != AUDIT_PMT_CHANGE)
    e.table_id = table_id;
  e.program_number = number;
  e.change = std::move(change);
  raise(a, std::move(e));
}

template <typename Visit> void for_each_ca_pid(section_bytes descriptors, Visit visit) {
  for_each_descriptor(descriptors, [&](uint8_t tag, section_bytes data) {
    if (tag == DESC_CA && data.size() >= 4)
      visit(pid_at(data, 2));
  });
}

// --- Programs ---

void forget_program(audit_ctx &a, uint32_t index, std::vector<uint16_t> &pids) {
  tables_state &t = a.tables;
  program &pg = *t.programs[index];
  unlist_program(a, index, true, pids);
  stop_watch(a, pg.recurrence);
  t.by_number[pg.number] = 0;
  t.programs[index].reset();
  t.free_programs.push_back(index);
}

void add_program(audit_ctx &a, uint16_t number, uint16_t pmt_pid, std::vector<uint16_t> &pids) {
  tables_state &t = a.tables;
  if (t.free_programs.empty()) {
    if (t.programs.size() >= MAX_PROGRAMS)
      return;
    t.programs.emplace_back();
    t.free_programs.reserve(t.programs.capacity()); // so that each can be given back
    t.free_programs.push_back(static_cast<uint32_t>(t.programs.size() - 1));
  }
  auto pg = std::make_unique<program>();
  const uint32_t index = t.free_programs.back();
  t.free_programs.pop_back();
  *pg = {.number = number, .pmt_pid = pmt_pid};
  start_watch(pg->recurrence, recurs::table, index, AUDIT_PMT, true);
  touch(a, pg->recurrence);
  t.programs[index] = std::move(pg);
  t.by_number[number] = static_cast<uint16_t>(index + 1);
  list_pid(a, index, pmt_pid, {.is_pmt = true});
  pids.push_back(pmt_pid);
}

// --- PAT ---

struct pat_entry {
  uint16_t number, pid;
};

// Of a program_number that stands there twice the first entry holds.
std::vector<pat_entry> pat_entries(section_bytes content) {
  std::vector<pat_entry> entries;
  std::unordered_set<uint16_t> numbers;
  for (size_t at = 2; at + PAT_ENTRY <= content.size(); at += PAT_ENTRY)
    if (numbers.insert(word_at(content, at)).second)
      entries.push_back({word_at(content, at), pid_at(content, at + 2)});
  return entries;
}

void mark_all_listed(audit_ctx &a, section_bytes content) {
  for (size_t at = 2; at + PAT_ENTRY <= content.size(); at += PAT_ENTRY)
    mark_listed(a, pid_at(content, at + 2));
}

std::vector<uint16_t> program_numbers(section_bytes content) {
  std::vector<uint16_t> numbers;
  for (const auto &[number, pid] : pat_entries(content))
    if (number != 0)
      numbers.push_back(number);
  return numbers;
}

// Those of `numbers` that are not among `others`.
std::vector<uint16_t> missing_in(std::vector<uint16_t> others,
                                 const std::vector<uint16_t> &numbers) {
  std::vector<uint16_t> missing;
  std::ranges::sort(others);
  std::ranges::copy_if(numbers, std::back_inserter(missing), [&](uint16_t number) {
    return !std::ranges::binary_search(others, number);
  });
  return missing;
}

std::unique_ptr<change_lists> pat_change(section_bytes before, section_bytes after) {
  auto change = std::make_unique<change_lists>();
  const auto old_numbers = program_numbers(before), new_numbers = program_numbers(after);
  change->added = missing_in(old_numbers, new_numbers);
  change->removed = missing_in(new_numbers, old_numbers);
  return change;
}

void set_network_pid(audit_ctx &a, uint16_t pid, std::vector<uint16_t> &pids) {
  if (pid == NETWORK_PID_DEFAULT)
    pid = PID_NIT;
  pids.push_back(std::exchange(a.tables.network_pid, pid));
  pids.push_back(pid);
}

// Puts the PAT in force. Programs that it keeps stay as they are; those that leave it, or move to
// another PMT PID, are forgotten.
void take_programs(audit_ctx &a) {
  tables_state &t = a.tables;
  std::vector<uint16_t> pids;
  uint16_t network_pid = PID_NIT;
  const std::vector<pat_entry> entries = pat_entries(t.pat.content);
  mark_all_listed(a, t.pat.content);
  for (const auto &[number, pid] : entries) {
    if (number == 0)
      network_pid = pid;
    else if (const uint32_t index = program_on(a, pid, number); index != NO_PROGRAM)
      t.programs[index]->stays = true;
  }
  for (const uint32_t index : std::exchange(t.order, {}))
    if (!std::exchange(t.programs[index]->stays, false))
      forget_program(a, index, pids);
  for (const auto &[number, pid] : entries) {
    if (number != 0 && t.by_number[number] == 0)
      add_program(a, number, pid, pids);
    if (const uint32_t index = program_on(a, pid, number); index != NO_PROGRAM) {
      t.programs[index]->place = static_cast<uint32_t>(t.order.size());
      t.order.push_back(index);
    }
  }
  set_network_pid(a, network_pid, pids);
  for (const uint16_t pid : pids)
    refresh_pid(a, pid);
}

void judge_pat(audit_ctx &a, uint8_t version) {
  pat_state &pat = a.tables.pat;
  std::vector<uint8_t> content(pat.sections[0].begin() + 3, pat.sections[0].begin() + 5);
  for (size_t i = 0; i <= pat.last_section; ++i)
    content.insert(content.end(), pat.sections[i].begin() + PAT_LOOP_AT,
                   pat.sections[i].end() - CRC_SIZE);
  if (pat.is_taken && content == pat.content) {
    pat.version = version;
    return;
  }
  if (pat.is_taken)
    raise_table_event(a, version == pat.version ? AUDIT_PSI_VERSION : AUDIT_PAT_CHANGE, PID_PAT,
                      TABLE_PAT, pat_change(pat.content, content));
  pat.is_taken = true;
  pat.version = version;
  pat.content = std::move(content);
  take_programs(a);
}

void gather_pat_anew(pat_state &pat, int32_t version, uint8_t last) {
  pat.next_version = version;
  pat.last_section = last;
  pat.count = 0;
  pat.has.fill(false);
}

// --- PMT ---

void list_streams(audit_ctx &a, uint32_t index) {
  const program &pg = *a.tables.programs[index];
  bool all_protected = false;
  const auto take_ecm = [&](uint16_t pid) { mark_listed(a, pid); };
  for_each_ca_pid(pmt_descriptors(pg.section), [&](uint16_t pid) {
    all_protected = true;
    take_ecm(pid);
  });
  if (pg.pcr_pid != PID_NULL)
    list_pid(a, index, pg.pcr_pid, {.is_pcr = true});
  for_each_stream(pg.section, [&](const pmt_stream &s) {
    bool is_protected = all_protected;
    for_each_ca_pid(s.descriptors, [&](uint16_t pid) {
      is_protected = true;
      take_ecm(pid);
    });
    list_pid(a, index, s.pid,
             {.is_stream = true,
              .is_protected = is_protected,
              .kind = kind_of_stream(s.type, s.descriptors),
              .stream_type = s.type});
  });
}

void put_pmt_in_force(audit_ctx &a, uint32_t index, section_bytes section) {
  program &pg = *a.tables.programs[index];
  std::vector<uint16_t> pids;
  unlist_program(a, index, false, pids);
  pg.section.assign(section.begin(), section.end());
  pg.version = version_of(section);
  pg.pcr_pid = pmt_pcr_pid(section);
  pg.has_pmt = true;
  list_streams(a, index);
  for (uint32_t next = pg.listings; next != 0; next = a.tables.listings[next - 1].next_of_program)
    pids.push_back(a.tables.listings[next - 1].pid);
  for (const uint16_t pid : pids)
    refresh_pid(a, pid);
}

std::vector<pmt_stream> streams_of(section_bytes section) {
  std::vector<pmt_stream> streams;
  for_each_stream(section, [&](const pmt_stream &s) {
    if (std::ranges::find(streams, s.pid, &pmt_stream::pid) == streams.end())
      streams.push_back(s);
  });
  return streams;
}

std::unique_ptr<change_lists> pmt_change(section_bytes before, section_bytes after) {
  auto change = std::make_unique<change_lists>();
  if (!std::ranges::equal(pmt_descriptors(before), pmt_descriptors(after)))
    change->descriptors.push_back(0);
  const auto old_streams = streams_of(before), new_streams = streams_of(after);
  for (const pmt_stream &s : new_streams) {
    const auto old = std::ranges::find(old_streams, s.pid, &pmt_stream::pid);
    if (old == old_streams.end()) {
      change->added.push_back(s.pid);
      continue;
    }
    if (old->type != s.type)
      change->retyped.push_back(s.pid);
    if (!std::ranges::equal(old->descriptors, s.descriptors))
      change->descriptors.push_back(s.pid);
  }
  for (const pmt_stream &s : old_streams)
    if (std::ranges::find(new_streams, s.pid, &pmt_stream::pid) == new_streams.end())
      change->removed.push_back(s.pid);
  if (pmt_pcr_pid(before) != pmt_pcr_pid(after)) {
    change->pcr_pid_old = pmt_pcr_pid(before);
    change->pcr_pid_new = pmt_pcr_pid(after);
  }
  return change;
}

} // namespace

uint32_t program_on(const audit_ctx &a, uint16_t pid, uint16_t number) {
  const uint32_t index = a.tables.by_number[number];
  if (index == 0 || a.tables.programs[index - 1]->pmt_pid != pid)
    return NO_PROGRAM;
  return index - 1;
}

int32_t table_pid(const audit_ctx &a, audit_table table) {
  switch (table) {
  case AUDIT_PAT:
    return PID_PAT;
  case AUDIT_NIT:
    return a.tables.network_pid;
  case AUDIT_SDT:
    return PID_SDT;
  case AUDIT_TDT:
    return PID_TDT;
  default:
    return PID_EIT;
  }
}

void take_pat(audit_ctx &a, section_bytes section) {
  pat_state &pat = a.tables.pat;
  const uint8_t number = section[6], last = section[7], version = version_of(section);
  if (number > last || (section.size() - PAT_LOOP_AT - CRC_SIZE) % PAT_ENTRY != 0) {
    raise_table_event(a, AUDIT_PSI_SYNTAX, PID_PAT, TABLE_PAT);
    return;
  }
  came(a, a.tables.recurrence[AUDIT_PAT]);
  if (version != pat.next_version || last != pat.last_section)
    gather_pat_anew(pat, version, last);
  pat.sections[number].assign(section.begin(), section.end());
  pat.count = static_cast<uint16_t>(pat.count + !std::exchange(pat.has[number], true));
  if (pat.count <= last)
    return;
  judge_pat(a, version);
  gather_pat_anew(pat, version, last);
}

void take_pmt(audit_ctx &a, uint16_t pid, section_bytes section) {
  const uint16_t number = word_at(section, 3);
  const uint32_t index = program_on(a, pid, number);
  if (index == NO_PROGRAM)
    return;
  if (section[6] != 0 || section[7] != 0 || !pmt_fits(section)) {
    raise_table_event(a, AUDIT_PSI_SYNTAX, pid, TABLE_PMT);
    return;
  }
  program &pg = *a.tables.programs[index];
  came(a, pg.recurrence);
  if (pg.has_pmt && std::ranges::equal(pmt_content(pg.section), pmt_content(section))) {
    pg.version = version_of(section);
    pg.section.assign(section.begin(), section.end());
    return;
  }
  if (pg.has_pmt)
    raise_table_event(a, pg.version == version_of(section) ? AUDIT_PSI_VERSION : AUDIT_PMT_CHANGE,
                      pid, TABLE_PMT, pmt_change(pg.section, section), number);
  put_pmt_in_force(a, index, section);
}

void take_cat(audit_ctx &a, section_bytes section) {
  a.tables.cat_came = true;
  a.tables.cat_section.assign(section.begin(), section.end());
  for_each_ca_pid(section.subspan(8, section.size() - 8 - CRC_SIZE),
                  [&](uint16_t pid) { mark_listed(a, pid); });
}

section_bytes held_section(const audit_ctx &a, uint16_t pid, section_bytes section) {
  const tables_state &t = a.tables;
  switch (a.records[pid].role) {
  case psi_role::pat:
    return t.pat.sections[section[6]];
  case psi_role::cat:
    return t.cat_section;
  case psi_role::pmt: {
    const uint32_t index = program_on(a, pid, word_at(section, 3));
    return index == NO_PROGRAM ? section_bytes() : t.programs[index]->section;
  }
  default:
    return {};
  }
}

void start_tables(audit_ctx &a) {
  const auto watch_table = [&](audit_table table) {
    start_watch(a.tables.recurrence[table], recurs::table, 0, table, false);
  };
  watch_table(AUDIT_PAT);
  if (in_dvb(a))
    for (const audit_table table : {AUDIT_NIT, AUDIT_SDT, AUDIT_EIT_P, AUDIT_EIT_F, AUDIT_TDT})
      watch_table(table);
  for (uint16_t pid = 0; pid <= 0x1F; ++pid) {
    mark_listed(a, pid);
    refresh_pid(a, pid);
  }
  mark_listed(a, PID_NULL);
}
