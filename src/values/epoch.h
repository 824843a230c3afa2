#pragma once

#include <atomic>
#include <cstdint>

namespace tamber {

/// A number that no other call in this process gets.
inline uint64_t NextEpoch() {
  // Threads take numbers by the block, so that they seldom meet at the counter.
  constexpr uint64_t kBlock = uint64_t{1} << 16;
  static std::atomic<uint64_t> blocks{0};
  thread_local uint64_t next = 0;
  if (next % kBlock == 0) next = blocks.fetch_add(kBlock, std::memory_order_relaxed) + 1;
  return next++;
}

}  // namespace tamber
