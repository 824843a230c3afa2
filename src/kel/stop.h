#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>

/// How long work learns that it is to end.
///
/// The layers above say which word asks the current thread to stop (StopWord) and where work may be
/// left at any step (Interruptible). Work that can take long calls CheckStop every few thousand
/// steps or some hundred kilobytes, so that less than a few milliseconds lie between two looks; it
/// is left by an exception, and its destructors put away what was half done. Callbacks of C
/// libraries, which no exception may cross, look with IsStopRequested.
namespace kel {

/// The word that asks the current thread to stop, and whether its work looks at it.
struct Stopping {
  const std::atomic<uint32_t>* word;
  bool armed;
};
// Looked at by every call of a built-in, and two words long: the room that the loader keeps for
// such variables has place for it in libraries that are opened late, too.
[[gnu::tls_model("initial-exec")]] extern constinit thread_local Stopping stopping;

/// Thrown by CheckStop. Never leaves the function that made its work Interruptible by more than
/// what calls it, which catches it.
struct Interrupted {};

/// The word by which the current thread is asked to stop, as long as this object lives; work is not
/// interruptible until somebody says so.
class StopWord {
 public:
  explicit StopWord(const std::atomic<uint32_t>* word) : before_(stopping) {
    stopping = {word, false};
  }
  StopWord(const StopWord&) = delete;
  StopWord& operator=(const StopWord&) = delete;
  ~StopWord() { stopping = before_; }

 private:
  Stopping before_;
};

/// Whether CheckStop may throw, as long as this object lives. Code of the host that runs inside is
/// entered with false: it expects no exception of ours from what it calls.
class Interruptible {
 public:
  explicit Interruptible(bool is) : armed_(stopping.armed) { stopping.armed = is; }
  Interruptible(const Interruptible&) = delete;
  Interruptible& operator=(const Interruptible&) = delete;
  ~Interruptible() { stopping.armed = armed_; }

 private:
  bool armed_;
};

/// Whether the current thread has been asked to stop, whatever it does.
bool IsEnding();
/// Whether interruptible work has been asked to stop.
bool IsStopRequested();
/// Throws Interrupted then.
void CheckStop();

/// What loops over values give StopPoll.
inline constexpr uint64_t kElementsPerLook = 4096;

/// CheckStop for loops whose steps are too small to look at each of them.
class StopPoll {
 public:
  explicit StopPoll(uint64_t stepsPerLook) : stepsPerLook_(stepsPerLook), left_(stepsPerLook) {}
  void Step(uint64_t steps = 1) {
    if (steps < left_) {
      left_ -= steps;
      return;
    }
    left_ = stepsPerLook_;
    CheckStop();
  }

 private:
  uint64_t stepsPerLook_;
  uint64_t left_;
};

/// How much is copied or cleared between two looks, so that it takes less than a millisecond even
/// when the memory is touched for the first time.
constexpr size_t kBytesPerStep = size_t{1} << 20;

/// memcpy that calls CheckStop on the way; what is behind the last look is not copied then.
void CopyLarge(void* to, const void* from, size_t size);
inline void CopyInSteps(void* to, const void* from, size_t size) {
  if (size > kBytesPerStep) [[unlikely]] {
    CopyLarge(to, from, size);
  } else if (size > 0) {
    std::memcpy(to, from, size);
  }
}
/// Sets bytes to zero in the same way.
void ClearInSteps(void* to, size_t size);

/// Calls `work(from, to)` for positions from `begin` to `end`, with a look after so many; ends when
/// one of them returns false.
template <class Work>
void ForSteps(uint64_t begin, uint64_t end, uint64_t stepsPerLook, Work&& work) {
  while (begin < end) {
    const uint64_t next = end - begin > stepsPerLook ? begin + stepsPerLook : end;
    if (!work(begin, next)) return;
    begin = next;
    if (begin < end) CheckStop();
  }
}

}  // namespace kel
