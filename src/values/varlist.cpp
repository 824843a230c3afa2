#include "values/varlist.h"

#include <algorithm>
#include <utility>

#include "kel/kelascii.h"
#include "values/cellops.h"

using tamber::Name;

namespace {

/// Up to this length a plain scan beats a table.
constexpr size_t kLinear = 8;
constexpr size_t kFirstIndexSize = 32;

bool ByName(const Variable* left, const Variable* right) { return *left < *right; }

}  // namespace

VarList::VarList(const VarList& other) : sorts_(other.sorts_), sortedNow_(other.sortedNow_) {
  other.Complete();
  items_.reserve(other.items_.size());
  try {
    for (const Variable* item : other.items_) {
      Variable* copy = item->Clone();
      copy->SetOwnName(item->OwnName());
      items_.push_back(copy);
    }
  } catch (...) {
    ClearList();
    throw;
  }
}

VarList::VarList(VarList&& other) noexcept
    : items_(std::move(other.items_)),
      index_(std::move(other.index_)),
      origin_(std::exchange(other.origin_, nullptr)),
      sorts_(other.sorts_),
      sortedNow_(other.sortedNow_) {
  other.items_.clear();
  other.index_.clear();
}

VarList& VarList::operator=(VarList other) noexcept {
  items_.swap(other.items_);
  index_.swap(other.index_);
  std::swap(origin_, other.origin_);
  std::swap(sorts_, other.sorts_);
  std::swap(sortedNow_, other.sortedNow_);
  return *this;
}

VarList::~VarList() { ClearList(); }

void VarList::Settle() {
  Complete();
  if (sorts_) SortIfNeeded();
  BuildIndex();
}

VarList VarList::CopyLater(const VarList& origin) {
  VarList copy(origin.sorts_);
  copy.items_.resize(origin.items_.size());
  copy.origin_ = &origin;
  return copy;
}

Variable* VarList::CopyItem(uint32_t position) const {
  const Variable& original = *origin_->items_[position];
  return items_[position] = tamber::SeparateVariable(original, original.OwnName());
}

void VarList::Complete() const {
  if (origin_ == nullptr) return;
  for (uint32_t i = 0; i < items_.size(); ++i)
    if (items_[i] == nullptr) CopyItem(i);
  origin_ = nullptr;
}

void VarList::SetAutoSort(bool sorted) {
  Complete();
  if (sorted && !sorts_) sortedNow_ = items_.size() < 2;
  sorts_ = sorted;
  DropIndex();
}

uint32_t VarList::FindVariable(std::string_view name) const {
  if (sorts_ && index_.empty() && origin_ == nullptr) return FindSorted(name);
  return Find(name, Name::HashOf(name));
}

uint32_t VarList::FindVariable(const Name& name) const { return Find(name.View(), name.Hash()); }

uint32_t VarList::Find(std::string_view name, uint32_t hash) const {
  if (origin_ != nullptr) return origin_->Find(name, hash);
  if (!index_.empty()) return FindHashed(name, hash);
  return sorts_ ? FindSorted(name) : FindIndexed(name, hash);
}

uint32_t VarList::FindSorted(std::string_view name) const {
  SortIfNeeded();
  const auto found = std::lower_bound(
      items_.begin(), items_.end(), name, [](const Variable* item, std::string_view wanted) {
        return kel::CompareNoCase(item->OwnName().View(), wanted) < 0;
      });
  if (found == items_.end() || !(*found)->OwnName().Equals(name)) return kNotFound;
  return static_cast<uint32_t>(found - items_.begin());
}

uint32_t VarList::FindIndexed(std::string_view name, uint32_t hash) const {
  if (items_.size() > kLinear) return FindHashed(name, hash);
  for (uint32_t i = 0; i < items_.size(); ++i) {
    const Name& own = items_[i]->OwnName();
    if (own.Hash() == hash && own.Equals(name)) return i;
  }
  return kNotFound;
}

uint32_t VarList::FindHashed(std::string_view name, uint32_t hash) const {
  if (index_.empty()) BuildIndex();
  const size_t mask = index_.size() - 1;
  for (size_t at = hash & mask; index_[at] != kNotFound; at = (at + 1) & mask) {
    const Name& own = items_[index_[at]]->OwnName();
    if (own.Hash() == hash && own.Equals(name)) return index_[at];
  }
  return kNotFound;
}

void VarList::BuildIndex() const {
  size_t size = kFirstIndexSize;
  while (size < items_.size() * 2) size *= 2;
  index_.assign(size, kNotFound);
  for (uint32_t i = 0; i < items_.size(); ++i) AddToIndex(i);
}

/// Keeps only the first variable of a name.
void VarList::AddToIndex(uint32_t position) const {
  const Name& name = items_[position]->OwnName();
  const size_t mask = index_.size() - 1;
  size_t at = name.Hash() & mask;
  while (index_[at] != kNotFound) {
    if (items_[index_[at]]->OwnName().Equals(name)) return;
    at = (at + 1) & mask;
  }
  index_[at] = position;
}

Variable* VarList::GetVariable(uint32_t position) const {
  if (position >= items_.size()) return nullptr;
  Variable* const item = items_[position];
  return item != nullptr ? item : CopyItem(position);
}

Variable* VarList::GetVariable(std::string_view name) const {
  return GetVariable(FindVariable(name));
}

uint32_t VarList::AddVariable(Variable* variable, bool unique, bool* inserted) {
  if (inserted != nullptr) *inserted = false;
  if (variable == nullptr) return kNotFound;
  if (unique) {
    const uint32_t present = FindVariable(variable->OwnName());
    if (present != kNotFound) return present;
  }
  Complete();
  auto place = items_.end();
  if (sorts_) {
    SortIfNeeded();
    place = std::upper_bound(items_.begin(), items_.end(), variable, ByName);
  }
  const auto position = static_cast<uint32_t>(place - items_.begin());
  items_.insert(place, variable);
  if (inserted != nullptr) *inserted = true;
  if (!index_.empty()) {
    if (items_.size() * 2 > index_.size() || position + 1 != items_.size()) {
      DropIndex();
    } else {
      AddToIndex(position);
    }
  }
  return position;
}

void VarList::AddLast(Variable* variable) {
  Complete();
  items_.push_back(variable);
  DropIndex();
}

Variable* VarList::RemoveVariable(uint32_t position) {
  if (position >= items_.size()) return nullptr;
  Complete();
  Variable* variable = items_[position];
  items_.erase(items_.begin() + position);
  DropIndex();
  return variable;
}

Variable* VarList::RemoveVariable(std::string_view name) {
  return RemoveVariable(FindVariable(name));
}

void VarList::DeleteVariable(uint32_t position) { Variable::Delete(RemoveVariable(position)); }

bool VarList::ReplaceVariable(uint32_t position, Variable* variable) {
  if (position >= items_.size() || variable == nullptr) return false;
  Complete();
  Variable* old = items_[position];
  if (!old->OwnName().Equals(variable->OwnName())) {
    sortedNow_ = false;
    DropIndex();
  }
  items_[position] = variable;
  Variable::Delete(old);
  return true;
}

void VarList::SwapVariables(uint32_t first, uint32_t second) {
  if (first >= items_.size() || second >= items_.size() || first == second) return;
  Complete();
  std::swap(items_[first], items_[second]);
  sortedNow_ = false;
  DropIndex();
}

void VarList::Sort() {
  Complete();
  sortedNow_ = false;
  std::stable_sort(items_.begin(), items_.end(), ByName);
  sortedNow_ = true;
  DropIndex();
}

void VarList::SortIfNeeded() const {
  if (sortedNow_) return;
  std::stable_sort(items_.begin(), items_.end(), ByName);
  sortedNow_ = true;
}

void VarList::ClearList() {
  // Emptied first: what goes may ask this list again.
  const std::vector<Variable*> gone = std::exchange(items_, {});
  origin_ = nullptr;
  DropIndex();
  sortedNow_ = true;
  for (Variable* item : gone) Variable::Delete(item);
}
