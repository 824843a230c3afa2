#pragma once

#include <cstdint>

namespace kel {

/// Never goes back; counts from some moment of the system's choosing.
uint64_t MonotonicNanoseconds();

/// Time that the calling thread has computed.
uint64_t ThreadNanoseconds();

/// Seconds since 1970, the low 32 bits.
uint32_t UnixSeconds();

}  // namespace kel
