#pragma once

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <memory>
#include <utility>

#include "kel/stop.h"

/// std::stable_sort that looks for a stop (kel/stop.h): runs are sorted by the library's own, and
/// merged here. When it is left, the elements are in no order, and some may be there twice.
namespace tamber {

/// Few enough to be sorted between two looks; the comparison of large elements looks itself.
constexpr size_t kSortedRun = size_t{1} << 17;
constexpr size_t kMergedPerLook = size_t{1} << 16;

template <class T, class Less>
void MergeInSteps(const T* left, const T* middle, const T* end, T* out, Less less) {
  const T* right = middle;
  while (left != middle && right != end) {
    // As many as neither side can run out of.
    size_t count =
        std::min(static_cast<size_t>(std::min(middle - left, end - right)), kMergedPerLook);
    for (; count > 0; --count) *out++ = less(*right, *left) ? *right++ : *left++;
    kel::CheckStop();
  }
  out = std::copy(left, middle, out);
  std::copy(right, end, out);
}

/// For elements that are copied as bytes, in one block of memory. Throws std::bad_alloc.
template <class It, class Less>
void SortInSteps(It first, It last, Less less) {
  const auto count = static_cast<size_t>(last - first);
  for (size_t at = 0; at < count; at += kSortedRun) {
    kel::CheckStop();
    std::stable_sort(first + static_cast<ptrdiff_t>(at),
                     first + static_cast<ptrdiff_t>(std::min(at + kSortedRun, count)), less);
  }
  if (count <= kSortedRun) return;
  using T = typename std::iterator_traits<It>::value_type;
  const auto room = std::make_unique_for_overwrite<T[]>(count);
  T* const sorted = &*first;
  T* from = sorted;
  T* to = room.get();
  for (size_t width = kSortedRun; width < count; width *= 2) {
    for (size_t at = 0; at < count; at += 2 * width) {
      const size_t middle = std::min(at + width, count);
      MergeInSteps(from + at, from + middle, from + std::min(middle + width, count), to + at, less);
    }
    std::swap(from, to);
  }
  if (from != sorted) std::copy(from, from + count, sorted);
}

}  // namespace tamber
