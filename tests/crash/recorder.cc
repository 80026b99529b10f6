// Each store faults; the handler opens the page, lets one instruction run, and compares the page with a copy. The
// functions of the C library that store much at once are defined here and record page by page.
#include "tests/crash/recorder.h"

#include <signal.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <ucontext.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <iterator>
#include <utility>

#include "platform/cage.h"

namespace crash {
namespace {

constexpr std::size_t kPage = 4096;
constexpr long long kTrapFlag = 0x100;

char* base;  // null: nothing is recorded
char* copy;
Trace trace;
char* open_pages[8];
int open_count;

bool in_slot(const void* at) { return base && at >= base && at < base + kvt::kSlotSize; }
char* page_of(const void* at) { return reinterpret_cast<char*>(reinterpret_cast<std::uintptr_t>(at) & ~(kPage - 1)); }
void copy_bytes(void* to, const void* from, std::size_t length) {
  asm volatile("rep movsb" : "+D"(to), "+S"(from), "+c"(length) : : "memory");
}
void protect(char* at, std::size_t length, int how) {
  if (mprotect(at, length, how)) std::abort();
}

void take(const char* page) {
  const char* before = copy + (page - base);
  std::size_t first = 0, end = kPage;
  while (first < kPage && page[first] == before[first]) first++;
  if (first == kPage) return;
  while (page[end - 1] == before[end - 1]) end--;
  trace.events.push_back({false, static_cast<std::uint32_t>(page + first - base),
                          static_cast<std::uint32_t>(end - first), trace.bytes.size()});
  trace.bytes.append(page + first, end - first);
  copy_bytes(copy + (page - base) + first, page + first, end - first);
}

template <class Body>
void whole(void* to, std::size_t length, Body body) {
  char* begin = page_of(to);
  char* end = page_of(static_cast<char*>(to) + length - 1) + kPage;
  protect(begin, static_cast<std::size_t>(end - begin), PROT_READ | PROT_WRITE);
  body();
  for (char* page = begin; page < end; page += kPage) take(page);
  protect(begin, static_cast<std::size_t>(end - begin), PROT_READ);
}

void on_fault(int, siginfo_t* info, void* context) {
  if (!in_slot(info->si_addr) || open_count == static_cast<int>(std::size(open_pages))) {
    signal(SIGSEGV, SIG_DFL);
    return;
  }
  open_pages[open_count++] = page_of(info->si_addr);
  protect(open_pages[open_count - 1], kPage, PROT_READ | PROT_WRITE);
  static_cast<ucontext_t*>(context)->uc_mcontext.gregs[REG_EFL] |= kTrapFlag;
}

void on_step(int, siginfo_t*, void* context) {
  while (open_count) {
    char* page = open_pages[--open_count];
    take(page);
    protect(page, kPage, PROT_READ);
  }
  static_cast<ucontext_t*>(context)->uc_mcontext.gregs[REG_EFL] &= ~kTrapFlag;
}

void on_signal(int number, void (*handler)(int, siginfo_t*, void*)) {
  struct sigaction action {};
  action.sa_flags = SA_SIGINFO;
  action.sa_sigaction = handler;
  sigaction(number, &action, nullptr);
}

int fail(int error) {
  errno = error;
  return -1;
}

int note_sync(const char* at, std::size_t length) {
  if (base)
    trace.events.push_back({true, static_cast<std::uint32_t>(at - base), static_cast<std::uint32_t>(length), 0});
  return 0;
}

}  // namespace

void record(char* slot) {
  if (!copy) {
    copy = static_cast<char*>(
        mmap(nullptr, kvt::kSlotSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0));
  }
  const auto segments = *reinterpret_cast<const std::uint32_t*>(slot + 24);
  copy_bytes(copy, slot, std::size_t{segments} * kvt::kSegmentSize);
  trace = {};
  on_signal(SIGSEGV, on_fault);
  on_signal(SIGTRAP, on_step);
  base = slot;
  protect(base, kvt::kSlotSize, PROT_READ);
}

Trace stop_recording() {
  protect(base, kvt::kSlotSize, PROT_READ | PROT_WRITE);
  madvise(copy, kvt::kSlotSize, MADV_DONTNEED);
  base = nullptr;
  signal(SIGSEGV, SIG_DFL);
  return std::exchange(trace, {});
}

std::size_t recorded() { return trace.events.size(); }

}  // namespace crash

extern "C" {

void* memcpy(void* __restrict to, const void* __restrict from, std::size_t length) {
  if (length && crash::in_slot(to)) {
    crash::whole(to, length, [=] { crash::copy_bytes(to, from, length); });
  } else {
    crash::copy_bytes(to, from, length);
  }
  return to;
}

void* memset(void* to, int byte, std::size_t length) {
  const auto fill = [=] {
    void* at = to;
    std::size_t left = length;
    asm volatile("rep stosb" : "+D"(at), "+c"(left) : "a"(byte) : "memory");
  };
  length&& crash::in_slot(to) ? crash::whole(to, length, fill) : fill();
  return to;
}

ssize_t pread(int fd, void* to, std::size_t length, off_t at) {
  ssize_t got = 0;
  const auto call = [&] { got = syscall(SYS_pread64, fd, to, length, at); };
  length&& crash::in_slot(to) ? crash::whole(to, length, call) : call();
  return got;
}

// The disk itself is never waited for.
int msync(void* at, std::size_t length, int) {
  return crash::sync_error ? crash::fail(crash::sync_error) : crash::note_sync(static_cast<char*>(at), length);
}

int fdatasync(int) {
  return crash::sync_error ? crash::fail(crash::sync_error) : crash::note_sync(crash::base, kvt::kSlotSize);
}

int posix_fallocate(int fd, off_t from, off_t length) {
  if (crash::room_error) return crash::room_error;
  return syscall(SYS_fallocate, fd, 0, from, length) ? errno : 0;
}
}
