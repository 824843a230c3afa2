#include "statements/proclist.h"

#include <algorithm>

#include "kel/dumpselection.h"
#include "statements/procedure.h"

ProcedureList::ProcedureList() : pools_{std::make_shared<Pool>()} {}

ProcedureList::ProcedureList(const ProcedureList& other)
    : sorted_(other.sorted_), byName_(other.byName_), pools_(other.pools_) {
  pools_.push_back(std::make_shared<Pool>());
}

ProcedureList::~ProcedureList() = default;

uint32_t ProcedureList::AddProcedure(std::unique_ptr<TamberProcedure> procedure) {
  TamberProcedure* added = procedure.get();
  uint32_t place = FindNearestProcedure(added->GetName().View());
  pools_.back()->push_back(std::move(procedure));
  sorted_.insert(sorted_.begin() + place, added);
  byName_[added->GetName().View()] = added;
  return place + 1;
}

uint32_t ProcedureList::FindNearestProcedure(std::string_view name) const {
  auto place = std::upper_bound(sorted_.begin(), sorted_.end(), name,
                                [](std::string_view wanted, const TamberProcedure* known) {
                                  return kel::CompareNoCase(wanted, known->GetName().View()) < 0;
                                });
  return static_cast<uint32_t>(place - sorted_.begin());
}

uint32_t ProcedureList::FindProcedure(std::string_view name) const {
  if (byName_.find(name) == byName_.end()) return 0;
  // The last of equal names is the one just before where a further one would go.
  return FindNearestProcedure(name);
}

TamberProcedure* ProcedureList::GetProcedure(uint32_t index) const {
  return index == 0 || index > sorted_.size() ? nullptr : sorted_[index - 1];
}

TamberProcedure* ProcedureList::GetProcedure(std::string_view name) const {
  auto found = byName_.find(name);
  return found == byName_.end() ? nullptr : found->second;
}

TamberProcedure* ProcedureList::RemoveProcedure(std::string_view name) {
  const uint32_t index = FindProcedure(name);
  if (index == 0) return nullptr;
  TamberProcedure* const removed = sorted_[index - 1];
  byName_.erase(byName_.find(name));
  sorted_.erase(sorted_.begin() + (index - 1));
  return removed;
}

bool ProcedureList::DeleteProcedure(std::string_view name) {
  return RemoveProcedure(name) != nullptr;
}

void ProcedureList::DestroyProcedures(const Set& procedures) {
  std::erase_if(byName_, [&](const auto& entry) { return procedures.contains(entry.second); });
  std::erase_if(sorted_, [&](const auto* procedure) { return procedures.contains(procedure); });
  Pool& own = *pools_.back();
  if (pools_.back().use_count() > 1) return;
  std::erase_if(own, [&](const auto& procedure) { return procedures.contains(procedure.get()); });
}

void ProcedureList::ClearList() {
  byName_.clear();
  sorted_.clear();
  if (runs_ > 0) retired_.insert(retired_.end(), pools_.begin(), pools_.end());
  pools_ = {std::make_shared<Pool>()};
}

void ProcedureList::DumpProcedures(KelString& out, const KelString& words) const {
  kel::DumpSelection selection(words);
  selection.AppendTitle(out, "Procedures dump:");
  auto write = [&](const TamberProcedure* procedure) {
    if (procedure == nullptr) return;
    out += procedure->Header();
    out += "\r\n";
  };
  if (selection.All()) {
    for (const TamberProcedure* procedure : sorted_) write(procedure);
    return;
  }
  for (std::string_view name : selection.Names()) write(GetProcedure(name));
}
