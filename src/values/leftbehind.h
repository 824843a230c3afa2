#pragma once

#include <cstddef>
#include <memory>
#include <new>
#include <utility>
#include <vector>

#include "values/cell.h"

namespace tamber {

/// What a run or a compilation that was asked to stop has had no time to release: large strings,
/// arrays with large memory or many elements that own something, trees, tables. It goes with the
/// list.
///
/// Belongs to one context, like the values in it.
class LeftBehind {
 public:
  LeftBehind() = default;
  LeftBehind(const LeftBehind&) = delete;
  LeftBehind& operator=(const LeftBehind&) = delete;
  ~LeftBehind() { Release(); }
  void Release();

 private:
  friend bool LeaveBehind(RefObject* object);
  friend bool LeaveBehind(std::shared_ptr<void> other);
  std::vector<RefObject*> objects_;  ///< without references
  std::vector<std::shared_ptr<void>> others_;
};

/// While it lives, what this thread's run releases after a request to stop may be left in `list`.
class LeavingBehind {
 public:
  explicit LeavingBehind(LeftBehind* list);
  LeavingBehind(const LeavingBehind&) = delete;
  LeavingBehind& operator=(const LeavingBehind&) = delete;
  ~LeavingBehind();

 private:
  LeftBehind* before_;
};

/// Whether what takes long to release should be left behind now.
bool IsLeavingBehind();
/// Takes over an object without references; false when there is no list or no memory for it.
bool LeaveBehind(RefObject* object);
bool LeaveBehind(std::shared_ptr<void> other);
/// Leaves a container's contents behind, if that is wanted now. It is empty then.
template <class Container>
void LeaveContents(Container& container) noexcept {
  if (!IsLeavingBehind()) return;
  try {
    auto left = std::make_shared<Container>();
    std::swap(*left, container);
    LeaveBehind(std::move(left));
  } catch (const std::bad_alloc&) {
    return;  // it is destroyed where it is
  }
}

/// Memory of at least this size takes long to give back.
inline constexpr size_t kLargeBlock = size_t{16} << 20;
/// Whether a large block whose contents nobody needs any more should be left behind with what it
/// belongs to. Without a stop its pages are given back, and free() finds little left to do.
bool IsLeavingBehind(void* block, size_t size);

}  // namespace tamber
