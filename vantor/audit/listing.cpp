#include "audit/listing.h"

#include "audit/recurrence.h"
#include "audit/tables.h"

namespace {

listing *find_listing(audit_ctx &a, uint32_t program, uint16_t pid) {
  for (uint32_t next = a.records[pid].listings; next != 0;) {
    listing &l = a.tables.listings[next - 1];
    if (l.program == program)
      return &l;
    next = l.next_of_pid;
  }
  return nullptr;
}

// Null when there are too many.
listing *add_listing(audit_ctx &a, uint32_t program, uint16_t pid) {
  tables_state &t = a.tables;
  pid_record &rec = a.records[pid];
  if (rec.listing_count >= MAX_PID_LISTINGS)
    return nullptr;
  if (t.free_listings.empty()) {
    if (t.listings.size() >= MAX_LISTINGS)
      return nullptr;
    t.listings.emplace_back();
    t.free_listings.reserve(t.listings.capacity()); // so that each can be given back
    t.free_listings.push_back(static_cast<uint32_t>(t.listings.size() - 1));
  }
  const uint32_t index = t.free_listings.back();
  t.free_listings.pop_back();

  uint32_t *link = &rec.listings; // behind those that are there
  while (*link != 0)
    link = &t.listings[*link - 1].next_of_pid;
  *link = index + 1;
  ++rec.listing_count;
  uint32_t &head = t.programs[program]->listings;
  t.listings[index] = {.program = program, .next_of_program = head, .pid = pid};
  head = index + 1;
  return &t.listings[index];
}

void remove_listing(audit_ctx &a, uint32_t index) {
  tables_state &t = a.tables;
  const listing &l = t.listings[index];
  pid_record &rec = a.records[l.pid];
  uint32_t *link = &rec.listings;
  while (*link != index + 1)
    link = &t.listings[*link - 1].next_of_pid;
  *link = l.next_of_pid;
  --rec.listing_count;
  t.free_listings.push_back(index);
}

void set_flag(pid_state &p, pid_flag flag, bool is_set) {
  p.flags = static_cast<uint8_t>(is_set ? p.flags | flag : p.flags & ~flag);
}

psi_role role_of(const audit_ctx &a, uint16_t pid, bool is_pmt, bool is_stream) {
  if (pid == 0)
    return psi_role::pat;
  if (pid == 1)
    return psi_role::cat;
  if (is_pmt)
    return psi_role::pmt;
  if (is_stream)
    return psi_role::none;
  if (pid == a.tables.network_pid)
    return psi_role::nit;
  constexpr psi_role si_roles[] = {psi_role::sdt, psi_role::eit, psi_role::rst, psi_role::tdt};
  return pid >= 0x11 && pid <= 0x14 ? si_roles[pid - 0x11] : psi_role::none;
}

void set_role(pid_record &rec, psi_role role) {
  if (rec.role == role)
    return;
  rec.role = role;
  if (rec.gather)
    *rec.gather = {};
}

// A stream is watched from where it is listed on.
void watch_stream(audit_ctx &a, uint16_t pid, bool is_listed) {
  pid_record &rec = a.records[pid];
  if (is_listed == rec.presence.is_on)
    return;
  if (is_listed) {
    start_watch(rec.presence, recurs::presence, pid, AUDIT_NO_TABLE, true);
    touch(a, rec.presence);
  } else {
    stop_watch(a, rec.presence);
    stop_watch(a, rec.pts);
  }
}

} // namespace

void list_pid(audit_ctx &a, uint32_t program, uint16_t pid, const pid_roles &roles) {
  mark_listed(a, pid);
  listing *l = find_listing(a, program, pid);
  if (!l)
    l = add_listing(a, program, pid);
  if (!l)
    return;
  if (roles.is_stream && !l->is_stream) {
    l->kind = roles.kind;
    l->stream_type = roles.stream_type;
    l->is_protected = roles.is_protected;
  }
  l->is_stream |= roles.is_stream;
  l->is_pcr |= roles.is_pcr;
  l->is_pmt |= roles.is_pmt;
}

void unlist_program(audit_ctx &a, uint32_t program, bool with_pmt, std::vector<uint16_t> &pids) {
  tables_state &t = a.tables;
  uint32_t *link = &t.programs[program]->listings;
  while (*link != 0) {
    const uint32_t index = *link - 1;
    listing &l = t.listings[index];
    pids.push_back(l.pid);
    if (l.is_pmt && !with_pmt) {
      l.is_stream = l.is_pcr = l.is_protected = false;
      link = &l.next_of_program;
    } else {
      *link = l.next_of_program;
      remove_listing(a, index);
    }
  }
}

void refresh_pid(audit_ctx &a, uint16_t pid) {
  pid_record &rec = a.records[pid];
  pid_state &p = a.pids[pid];
  rec.is_stream = rec.is_pcr = rec.is_protected = false;
  rec.kind = 0;
  bool is_pmt = false;
  for (uint32_t next = rec.listings; next != 0;) {
    const listing &l = a.tables.listings[next - 1];
    if (l.is_stream && !rec.is_stream) {
      rec.kind = l.kind;
      rec.stream_type = l.stream_type;
    }
    rec.is_stream |= l.is_stream;
    rec.is_pcr |= l.is_pcr;
    rec.is_protected |= l.is_protected;
    is_pmt |= l.is_pmt;
    next = l.next_of_pid;
  }
  set_role(rec, role_of(a, pid, is_pmt, rec.is_stream));
  watch_stream(a, pid, rec.is_stream);
  const bool is_av = rec.kind == 'V' || rec.kind == 'A';
  set_flag(p, PID_PSI, rec.role != psi_role::none);
  set_flag(p, PID_WATCHED, is_av || (rec.is_stream && rec.is_pcr));
  set_flag(p, PID_AWAITED, rec.is_stream && !is_av && p.seen == 0);
  set_flag(p, PID_STAMPED, is_av && rec.role == psi_role::none);
  set_flag(p, PID_UNPROTECTED, rec.is_stream && !rec.is_protected);
}

void mark_listed(audit_ctx &a, uint16_t pid) {
  set_flag(a.pids[pid], PID_LISTED, true);
}

int32_t sole_program(const audit_ctx &a, int32_t pid) {
  if (pid < 0 || a.records[static_cast<size_t>(pid)].listing_count != 1)
    return -1;
  const uint32_t first = a.records[static_cast<size_t>(pid)].listings;
  return a.tables.programs[a.tables.listings[first - 1].program]->number;
}

int32_t clock_of(const audit_ctx &a, uint16_t pid) {
  const program *first = nullptr;
  for (uint32_t next = a.records[pid].listings; next != 0;) {
    const listing &l = a.tables.listings[next - 1];
    const program &pg = *a.tables.programs[l.program];
    if (l.is_stream && (!first || pg.place < first->place))
      first = &pg;
    next = l.next_of_pid;
  }
  return first ? first->pcr_pid : -1;
}
