#pragma once

#include <cstdint>

namespace tamber {

/// Counts how deep work on arrays within arrays has gone: a script can nest them without end, the
/// native stack cannot follow.
class Nesting {
 public:
  Nesting() { ++depth_; }
  Nesting(const Nesting&) = delete;
  Nesting& operator=(const Nesting&) = delete;
  ~Nesting() { --depth_; }
  bool IsTooDeep() const { return depth_ > kMaxDepth; }

 private:
  static constexpr uint32_t kMaxDepth = 500;
  static inline thread_local uint32_t depth_ = 0;
};

}  // namespace tamber
