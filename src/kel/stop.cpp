#include "kel/stop.h"

namespace kel {

constinit thread_local Stopping stopping{nullptr, false};

bool IsEnding() {
  return stopping.word != nullptr && stopping.word->load(std::memory_order_relaxed) != 0;
}

bool IsStopRequested() { return stopping.armed && IsEnding(); }

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
