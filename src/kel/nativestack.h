#pragma once

#include <cstddef>

namespace kel {

/// Bytes of native stack that the calling thread has left, guard pages not counted; cheap enough to
/// be asked at every level of a recursion. On a stack that the system does not know (a host's own
/// coroutine) it gives `kUnknownStackLeft`, and only a limit on depth helps.
size_t NativeStackLeft();

inline constexpr size_t kUnknownStackLeft = size_t{256} * 1024;

}  // namespace kel
