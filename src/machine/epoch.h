#pragma once

#include <atomic>
#include <cstdint>

namespace tamber {

/// A number that no other call in this process gets.
inline uint64_t NextEpoch() {
  static std::atomic<uint64_t> next{1};
  return next.fetch_add(1, std::memory_order_relaxed);
}

}  // namespace tamber
