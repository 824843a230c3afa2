// The allocator of a program that makes part of its memory read-only: what is collected comes out
// of one piece, in which nothing is used twice, and everything else from the C library.
#include "readonly.h"

#include <dlfcn.h>
#include <execinfo.h>
#include <malloc.h>
#include <sys/mman.h>
#include <ucontext.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* memory, size_t size);
void* __libc_memalign(size_t alignment, size_t size);
void __libc_free(void* memory);
}

namespace {

constexpr size_t kArenaSize = size_t{256} << 20;
constexpr size_t kHeader = 16;

char* theArena = nullptr;
size_t theUsed = 0;
/// Only this thread collects.
thread_local bool theArenaIsOpen = false;

bool IsInArena(const void* memory) {
  const auto address = reinterpret_cast<uintptr_t>(memory);
  const auto begin = reinterpret_cast<uintptr_t>(theArena);
  return theArena != nullptr && address >= begin && address < begin + kArenaSize;
}

size_t& SizeOf(void* memory) {
  return *reinterpret_cast<size_t*>(static_cast<char*>(memory) - kHeader);
}

bool OpenArena() {
  if (theArena != nullptr) return true;
  void* const memory = mmap(nullptr, kArenaSize, PROT_READ | PROT_WRITE,
                            MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (memory == MAP_FAILED) return false;
  theArena = static_cast<char*>(memory);
  return true;
}

/// Null when it has to come from somewhere else.
void* FromArena(size_t alignment, size_t size) {
  if (!theArenaIsOpen || size >= kArenaSize || !OpenArena()) return nullptr;
  const size_t place = (theUsed + kHeader + alignment - 1) / alignment * alignment;
  if (place + size > kArenaSize) return nullptr;
  theUsed = place + size;
  SizeOf(theArena + place) = size;
  return theArena + place;
}

void Say(const char* what) {
  if (write(STDERR_FILENO, what, strlen(what)) < 0) _exit(1);
}

void Protect(int protection) {
  if (theArena != nullptr) mprotect(theArena, kArenaSize, protection);
}

constexpr int kFrames = 64;

struct Backtrace {
  void* frames[kFrames] = {};
  int count = backtrace(frames, kFrames);

  bool Holds(std::string_view beginOfSymbol) const {
    return std::any_of(frames, frames + count, [&](const void* frame) {
      Dl_info info;
      return dladdr(frame, &info) != 0 && info.dli_sname != nullptr &&
             std::string_view(info.dli_sname).starts_with(beginOfSymbol);
    });
  }
};

bool IsFirstTime(const void* word) {
  constexpr size_t kMost = 4096;
  static const void* seen[kMost];
  static size_t count = 0;
  if (count == kMost || std::find(seen, seen + count, word) != seen + count) return false;
  seen[count++] = word;
  return true;
}

bool MayCount(const void* word, const unsigned char* instruction) {
  constexpr unsigned char kLock = 0xF0;
  if (*instruction != kLock) return false;
  const Backtrace calls{};
  return calls.Holds("_ZN13TamberContextC") || calls.Holds("_ZN13TamberContextD") ||
         IsFirstTime(word);
}

constexpr greg_t kStep = 0x100;  // the processor stops after the next instruction

greg_t* RegistersOf(void* machine) { return static_cast<ucontext_t*>(machine)->uc_mcontext.gregs; }

void Refuse(int signal, siginfo_t* info, void* machine) {
  if (IsInArena(info->si_addr)) {
    greg_t* const registers = RegistersOf(machine);
    if (MayCount(info->si_addr, reinterpret_cast<unsigned char*>(registers[REG_RIP]))) {
      Protect(PROT_READ | PROT_WRITE);
      registers[REG_EFL] |= kStep;
      return;
    }
    Say("memory of the program was written:\n");
    const Backtrace calls{};
    backtrace_symbols_fd(calls.frames, calls.count, STDERR_FILENO);
  }
  ::signal(signal, SIG_DFL);
  raise(signal);
}

void AfterCount(int, siginfo_t*, void* machine) {
  Protect(PROT_READ);
  RegistersOf(machine)[REG_EFL] &= ~kStep;
}

void Handle(int signal, void (*handler)(int, siginfo_t*, void*)) {
  struct sigaction action = {};
  action.sa_sigaction = handler;
  action.sa_flags = SA_SIGINFO;
  sigaction(signal, &action, nullptr);
}

}  // namespace

extern "C" {

void* malloc(size_t size) {
  void* const memory = FromArena(kHeader, size);
  return memory != nullptr ? memory : __libc_malloc(size);
}

void* calloc(size_t count, size_t size) {
  size_t bytes = 0;
  if (__builtin_mul_overflow(count, size, &bytes)) return nullptr;
  // The arena is used once, and comes from the system full of zeroes.
  void* const memory = FromArena(kHeader, bytes);
  return memory != nullptr ? memory : __libc_calloc(count, size);
}

void* realloc(void* memory, size_t size) {
  if (!IsInArena(memory) && memory != nullptr) return __libc_realloc(memory, size);
  void* const moved = malloc(size);
  if (moved != nullptr && memory != nullptr) memcpy(moved, memory, std::min(size, SizeOf(memory)));
  return moved;
}

void* memalign(size_t alignment, size_t size) {
  void* const memory = FromArena(std::max(alignment, kHeader), size);
  return memory != nullptr ? memory : __libc_memalign(alignment, size);
}

void* aligned_alloc(size_t alignment, size_t size) { return memalign(alignment, size); }

int posix_memalign(void** memory, size_t alignment, size_t size) {
  *memory = memalign(alignment, size);
  return *memory != nullptr ? 0 : ENOMEM;
}

void free(void* memory) {
  if (!IsInArena(memory)) __libc_free(memory);
}

}  // extern "C"

Collected::Collected() { theArenaIsOpen = true; }
Collected::~Collected() { theArenaIsOpen = false; }

ReadOnly::ReadOnly() {
  Handle(SIGSEGV, Refuse);
  Handle(SIGTRAP, AfterCount);
  Protect(PROT_READ);
}

ReadOnly::~ReadOnly() { Protect(PROT_READ | PROT_WRITE); }
