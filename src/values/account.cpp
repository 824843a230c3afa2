#include "values/account.h"

#include <cstdlib>
#include <new>
#include <utility>

namespace tamber {

constinit thread_local MemoryAccount memory_account;

namespace {

constinit thread_local MemoryWatch* memory_watch = nullptr;

}  // namespace

void PassMemoryMark(size_t bytes) {
  if (memory_watch != nullptr && memory_watch->PassMark()) return;
  CountFreed(bytes);
  throw std::bad_alloc();
}

void RefuseLength(Limit limit) {
  if (memory_watch != nullptr) memory_watch->Refuse(limit);
  throw std::bad_alloc();
}

void FailCounted(size_t bytes) {
  CountFreed(bytes);
  throw std::bad_alloc();
}

WatchedMemory::WatchedMemory(MemoryWatch& watch, int64_t room, uint32_t longestString,
                             uint32_t longestArray)
    : before_(memory_account), watchBefore_(std::exchange(memory_watch, &watch)) {
  memory_account.longestString = longestString;
  memory_account.longestArray = longestArray;
  SetMark(room);
}

WatchedMemory::~WatchedMemory() {
  memory_account = before_;
  memory_watch = watchBefore_;
}

UnlimitedMemory::UnlimitedMemory() : before_(memory_account) {
  memory_account.mark = MemoryAccount::kNoMark;
  memory_account.longestString = memory_account.longestArray = MemoryAccount::kAnyLength;
}

UnlimitedMemory::~UnlimitedMemory() {
  memory_account.mark = before_.mark;
  memory_account.longestString = before_.longestString;
  memory_account.longestArray = before_.longestArray;
}

}  // namespace tamber
