#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <utility>

#include "values/limittable.h"

namespace tamber {

/// Asked when the values of a thread need more than they may have.
class MemoryWatch {
 public:
  /// The thread's account passes its mark. False: there is to be no more; the mark stays.
  virtual bool PassMark() = 0;
  /// A string or an array would be longer than it may be.
  virtual void Refuse(Limit limit) = 0;

 protected:
  MemoryWatch() = default;
  ~MemoryWatch() = default;
};

/// What the values that this thread makes and releases hold, in bytes. It counts always, as that
/// costs less than to ask whether to; where it begins means nothing, only differences do.
struct MemoryAccount {
  static constexpr int64_t kNoMark = std::numeric_limits<int64_t>::max();
  static constexpr uint32_t kAnyLength = std::numeric_limits<uint32_t>::max();

  int64_t used = 0;
  int64_t mark = kNoMark;  ///< beyond this, the watch is asked
  uint32_t longestString = kAnyLength;
  uint32_t longestArray = kAnyLength;
};
// Small: the room that the loader keeps for such variables has to have place for it in libraries
// that are opened late, too.
[[gnu::tls_model("initial-exec")]] extern constinit thread_local MemoryAccount memory_account;

/// Asks the watch; throws std::bad_alloc, with nothing counted, when there is to be no more.
void PassMemoryMark(size_t bytes);
/// Tells the watch, and throws std::bad_alloc.
[[noreturn]] void RefuseLength(Limit limit);

/// What was counted could not be allocated; throws std::bad_alloc.
[[noreturn]] void FailCounted(size_t bytes);

/// Before memory is allocated. Throws std::bad_alloc when there is to be no more.
inline void CountAllocated(size_t bytes) {
  memory_account.used += static_cast<int64_t>(bytes);
  if (memory_account.used > memory_account.mark) [[unlikely]]
    PassMemoryMark(bytes);
}
inline void CountFreed(size_t bytes) { memory_account.used -= static_cast<int64_t>(bytes); }

/// Throw std::bad_alloc for what is longer than it may be.
inline void CheckStringLength(uint64_t length) {
  if (length > memory_account.longestString) [[unlikely]]
    RefuseLength(Limit::string);
}
inline void CheckArrayLength(uint64_t count) {
  if (count > memory_account.longestArray) [[unlikely]]
    RefuseLength(Limit::array);
}

/// malloc, counted; throws std::bad_alloc.
inline void* AllocateCounted(size_t bytes) {
  CountAllocated(bytes);
  void* const memory = std::malloc(bytes);
  if (memory == nullptr) [[unlikely]]
    FailCounted(bytes);
  return memory;
}
/// realloc to a larger block; throws std::bad_alloc, and leaves the block as it was.
inline void* ReallocateCounted(void* memory, size_t before, size_t bytes) {
  CountAllocated(bytes - before);
  void* const moved = std::realloc(memory, bytes);
  if (moved == nullptr) [[unlikely]]
    FailCounted(bytes - before);
  return moved;
}
inline void FreeCounted(void* memory, size_t bytes) {
  CountFreed(memory != nullptr ? bytes : 0);
  std::free(memory);
}

/// Counts memory that something else allocates, as long as it lives. Throws std::bad_alloc.
class CountedBytes {
 public:
  CountedBytes() = default;
  explicit CountedBytes(size_t bytes) : bytes_(bytes) { CountAllocated(bytes); }
  CountedBytes(CountedBytes&& other) noexcept : bytes_(std::exchange(other.bytes_, 0)) {}
  CountedBytes& operator=(CountedBytes&& other) noexcept {
    std::swap(bytes_, other.bytes_);
    return *this;
  }
  ~CountedBytes() { CountFreed(bytes_); }

 private:
  size_t bytes_ = 0;
};

/// Has the account of this thread watched as long as it lives; what was watched before goes on
/// then, as if nothing had been allocated meanwhile.
class WatchedMemory {
 public:
  WatchedMemory(MemoryWatch& watch, int64_t room, uint32_t longestString, uint32_t longestArray);
  WatchedMemory(const WatchedMemory&) = delete;
  WatchedMemory& operator=(const WatchedMemory&) = delete;
  ~WatchedMemory();

  /// Bytes that more are held than at the beginning.
  int64_t Growth() const { return memory_account.used - before_.used; }
  /// The mark, as growth.
  void SetMark(int64_t growth) { memory_account.mark = before_.used + growth; }

 private:
  MemoryAccount before_;
  MemoryWatch* watchBefore_;
};

/// Lifts the limits for what tells of errors, as long as it lives.
class UnlimitedMemory {
 public:
  UnlimitedMemory();
  UnlimitedMemory(const UnlimitedMemory&) = delete;
  UnlimitedMemory& operator=(const UnlimitedMemory&) = delete;
  ~UnlimitedMemory();

 private:
  MemoryAccount before_;
};

}  // namespace tamber
