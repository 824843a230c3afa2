#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <unordered_map>

#include "values/variable.h"

namespace tamber {

/// The objects that elements of an array have, by position; of elements that are objects anyway
/// only the positions of those that somebody may hold, with null. Mostly there are one or two of
/// them, for as long as a call takes; those lie side by side. Many are found by hash. The objects
/// are the array's to delete.
class BoxMap {
 public:
  static void* operator new(size_t size);
  static void operator delete(void* memory, size_t size);

  /// Null: the element has no object.
  Variable* Find(uint32_t at) const {
    if (many_ != nullptr) [[unlikely]] {
      const auto found = many_->find(at);
      return found == many_->end() ? nullptr : found->second;
    }
    for (uint32_t i = 0; i < count_; ++i)
      if (few_[i].at == at) return few_[i].object;
    return nullptr;
  }
  bool IsEmpty() const { return many_ != nullptr ? many_->empty() : count_ == 0; }
  /// The object of a position, at first null; good until the map changes. Throws std::bad_alloc.
  Variable*& Slot(uint32_t at);
  void Erase(uint32_t at) {
    if (many_ != nullptr) [[unlikely]] {
      many_->erase(at);
      return;
    }
    EraseIf([at](uint32_t position, Variable*) { return position == at; });
  }
  /// Whether it is time to look through all of them for those that nobody needs any more. Such a
  /// look that leaves some makes the next ones wait: else every access would cost as much as there
  /// are objects, in a recursion over elements as many as it is deep.
  bool IsDue() {
    if (wait_ == 0) return true;
    --wait_;
    return false;
  }
  void Wait() { wait_ = many_ != nullptr ? static_cast<uint32_t>(many_->size()) : count_; }
  /// Forgets the objects of which `gone` says so; it is asked once for each.
  template <class Gone>
  void EraseIf(const Gone& gone) {
    if (many_ != nullptr) [[unlikely]] {
      std::erase_if(*many_, [&](const auto& box) { return gone(box.first, box.second); });
      return;
    }
    for (uint32_t i = 0; i < count_;) {
      if (gone(few_[i].at, few_[i].object))
        few_[i] = few_[--count_];
      else
        ++i;
    }
  }
  /// An element has left: those behind it move up.
  void CloseGap(uint32_t at);

 private:
  struct Box {
    uint32_t at;
    Variable* object;
  };
  static constexpr uint32_t kFew = 8;
  using Many = std::unordered_map<uint32_t, Variable*>;

  uint32_t wait_ = 0;           // accesses until a look is due
  uint32_t count_ = 0;          // of few_
  std::array<Box, kFew> few_;   // the first count_ of them are set
  std::unique_ptr<Many> many_;  // when there are more: all of them
};

}  // namespace tamber
