#include "input/bus_guard.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

namespace {

// What the handler needs. It only ever interrupts the code that reads what is watched.
bool claimed;
uintptr_t page_size;
volatile uintptr_t watched_begin, watched_end;
volatile sig_atomic_t hit;
struct sigaction former_action;
sigset_t former_mask;

bool is_sent(const siginfo_t *info) {
  return info->si_code <= 0; // by kill(2) and its like
}

// mmap(2) is a bare system call, and so may be called here.
bool put_zeros(const siginfo_t *info) {
  auto *const begin = static_cast<uint8_t *>(info->si_addr);
  const auto address = reinterpret_cast<uintptr_t>(begin), in_page = address & (page_size - 1),
             page = address - in_page;
  if (is_sent(info) || page < watched_begin || page >= watched_end)
    return false;
  hit = 1;
  return mmap(begin - in_page, watched_end - page, PROT_READ,
              MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0) != MAP_FAILED;
}

void pass_on(int sig, siginfo_t *info, void *context) {
  if (former_action.sa_flags & SA_SIGINFO) {
    former_action.sa_sigaction(sig, info, context);
  } else if (former_action.sa_handler == SIG_DFL || !is_sent(info)) {
    sigaction(sig, &former_action, nullptr); // a fault comes again on return
    if (is_sent(info))
      raise(sig);
  } else if (former_action.sa_handler != SIG_IGN) {
    former_action.sa_handler(sig);
  }
}

void handle_bus(int sig, siginfo_t *info, void *context) {
  const int saved_errno = errno;
  if (!put_zeros(info))
    pass_on(sig, info, context);
  errno = saved_errno;
}

} // namespace

bool bus_guard_claim() {
  if (claimed)
    return false;
  page_size = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
  bus_guard_watch(nullptr, 0);
  struct sigaction action = {};
  action.sa_sigaction = handle_bus;
  action.sa_flags = SA_SIGINFO | SA_ONSTACK;
  if (sigaction(SIGBUS, &action, &former_action) != 0)
    return false;
  sigset_t bus; // a fault kills when the signal is blocked, as a parent can have left it
  sigemptyset(&bus);
  sigaddset(&bus, SIGBUS);
  pthread_sigmask(SIG_UNBLOCK, &bus, &former_mask);
  claimed = true;
  return true;
}

void bus_guard_watch(const uint8_t *begin, size_t size) {
  watched_begin = reinterpret_cast<uintptr_t>(begin);
  watched_end = watched_begin + size;
  hit = 0;
}

bool bus_guard_hit() {
  return hit != 0;
}

void bus_guard_release() {
  if (!claimed)
    return;
  pthread_sigmask(SIG_SETMASK, &former_mask, nullptr);
  sigaction(SIGBUS, &former_action, nullptr);
  claimed = false;
}
