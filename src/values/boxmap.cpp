#include "values/boxmap.h"

#include <utility>

#include "values/varpool.h"

namespace tamber {

void* BoxMap::operator new(size_t size) { return PoolAllocate(size); }
void BoxMap::operator delete(void* memory, size_t size) { PoolFree(memory, size); }

Variable*& BoxMap::Slot(uint32_t at) {
  if (many_ == nullptr) {
    for (uint32_t i = 0; i < count_; ++i)
      if (few_[i].at == at) return few_[i].object;
    if (count_ < kFew) {
      few_[count_] = {at, nullptr};
      return few_[count_++].object;
    }
    auto many = std::make_unique<Many>();
    for (const Box& box : few_) many->emplace(box.at, box.object);
    Variable*& object = (*many)[at];
    many_ = std::move(many);
    count_ = 0;
    return object;
  }
  return (*many_)[at];
}

void BoxMap::CloseGap(uint32_t at) {
  for (uint32_t i = 0; i < count_; ++i)
    if (few_[i].at > at) --few_[i].at;
  if (many_ == nullptr) return;
  Many moved;
  for (const auto& [position, box] : *many_) moved[position > at ? position - 1 : position] = box;
  *many_ = std::move(moved);
}

}  // namespace tamber
