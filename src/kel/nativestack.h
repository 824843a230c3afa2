#pragma once

#include <cstddef>
#include <cstdint>

namespace kel {

inline constexpr size_t kUnknownStackLeft = size_t{256} * 1024;

/// The usable part of a thread's stack; size 0 when the system does not tell.
struct StackBounds {
  uintptr_t low = 0;
  size_t size = 0;
  bool isKnown = false;
};
// Looked at by every call of a host; as in stop.h.
[[gnu::tls_model("initial-exec")]] extern constinit thread_local StackBounds stack_bounds;
void FindStackBounds(uintptr_t here);

/// Bytes of native stack that the calling thread has left, guard pages not counted; cheap enough to
/// be asked at every level of a recursion. On a stack that the system does not know (a host's own
/// coroutine) it gives `kUnknownStackLeft`, and only a limit on depth helps.
inline size_t NativeStackLeft() {
  // The frame's address, not that of a local: a sanitizer may keep locals elsewhere.
  const auto here = reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
  if (!stack_bounds.isKnown) [[unlikely]]
    FindStackBounds(here);
  const size_t left = here - stack_bounds.low;
  return left < stack_bounds.size ? left : kUnknownStackLeft;
}

}  // namespace kel
