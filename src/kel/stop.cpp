#include "kel/stop.h"

#include <utility>

namespace kel {
namespace {

struct Stopping {
  const std::atomic<uint32_t>* word;
  bool armed;
};

// Looked at by every call of a built-in, and two words long: the room that the loader keeps for
// such variables has place for it in libraries that are opened late, too.
[[gnu::tls_model("initial-exec")]] constinit thread_local Stopping stopping{nullptr, false};

}  // namespace

StopWord::StopWord(const std::atomic<uint32_t>* word)
    : word_(std::exchange(stopping.word, word)), armed_(std::exchange(stopping.armed, false)) {}

StopWord::~StopWord() { stopping = {word_, armed_}; }

Interruptible::Interruptible(bool is) : armed_(std::exchange(stopping.armed, is)) {}

Interruptible::~Interruptible() { stopping.armed = armed_; }

bool IsStopRequested() {
  return stopping.armed && stopping.word != nullptr &&
         stopping.word->load(std::memory_order_relaxed) != 0;
}

void CheckStop() {
  if (IsStopRequested()) throw Interrupted();
}

void CopyLarge(void* to, const void* from, size_t size) {
  ForSteps(0, size, kBytesPerStep, [&](uint64_t at, uint64_t end) {
    std::memcpy(static_cast<char*>(to) + at, static_cast<const char*>(from) + at, end - at);
    return true;
  });
}

void ClearInSteps(void* to, size_t size) {
  ForSteps(0, size, kBytesPerStep, [&](uint64_t at, uint64_t end) {
    std::memset(static_cast<char*>(to) + at, 0, end - at);
    return true;
  });
}

}  // namespace kel
