#include "machine/locals.h"

#include "kel/kelascii.h"

namespace tamber {
namespace {

/// Fewer names are found faster by looking at each.
constexpr size_t kIndexAbove = 8;

}  // namespace

int32_t LocalTable::Find(std::string_view name) const {
  if (table_.empty()) {
    for (size_t slot = 0; slot < locals_.size(); ++slot)
      if (locals_[slot].name.Equals(name)) return static_cast<int32_t>(slot);
    return -1;
  }
  size_t mask = table_.size() - 1;
  for (size_t at = Name::HashOf(name) & mask; table_[at] >= 0; at = (at + 1) & mask)
    if (locals_[static_cast<size_t>(table_[at])].name.Equals(name)) return table_[at];
  return -1;
}

uint32_t LocalTable::Add(Local local) {
  auto slot = static_cast<uint32_t>(locals_.size());
  locals_.push_back(std::move(local));
  if (locals_.size() > kIndexAbove) Index(slot);
  return slot;
}

void LocalTable::Index(uint32_t slot) {
  bool grows = table_.size() < locals_.size() * 2;
  uint32_t first = slot;
  if (grows) {
    table_.assign(table_.empty() ? kIndexAbove * 4 : table_.size() * 2, -1);
    first = 0;
  }
  size_t mask = table_.size() - 1;
  for (uint32_t i = first; i <= slot; ++i) {
    size_t at = locals_[i].name.Hash() & mask;
    while (table_[at] >= 0) at = (at + 1) & mask;
    table_[at] = static_cast<int32_t>(i);
  }
}

}  // namespace tamber
