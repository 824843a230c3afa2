#include "statements/proclist.h"

#include <algorithm>
#include <iterator>

#include "kel/dumpselection.h"
#include "statements/procedure.h"
#include "values/epoch.h"
#include "values/leftbehind.h"

ProcedureList::ProcedureList() : pools_{std::make_shared<Pool>()} {}

ProcedureList::ProcedureList(const ProcedureList& other)
    : table_(other.SortedTable()), version_(other.version_) {
  // Of programs that are made of one another each would add empty ones.
  for (const auto& pool : other.pools_) {
    if (!pool->empty()) pools_.push_back(pool);
  }
  pools_.push_back(std::make_shared<Pool>());
}

ProcedureList::~ProcedureList() = default;

ProcedureList::Table& ProcedureList::Own() {
  version_ = tamber::NextEpoch();
  return table_.Write();
}

uint32_t ProcedureList::AddProcedure(std::unique_ptr<TamberProcedure> procedure) {
  const TamberProcedure& added = *procedure;
  Enter(std::move(procedure));
  // The last of equal names is the one just before where a further one would go.
  return FindNearestProcedure(added.GetName().View());
}

void ProcedureList::Enter(std::unique_ptr<TamberProcedure> procedure) {
  TamberProcedure* const added = procedure.get();
  pools_.back()->push_back(std::move(procedure));
  Table& table = Own();
  table.entered.push_back(added);
  table.byName[added->GetName().View()] = added;
}

void ProcedureList::SortEntered() {
  const auto byName = [](const TamberProcedure* left, const TamberProcedure* right) {
    return kel::CompareNoCase(left->GetName().View(), right->GetName().View()) < 0;
  };
  Table& table = table_.Write();
  std::stable_sort(table.entered.begin(), table.entered.end(), byName);
  const auto before = static_cast<std::ptrdiff_t>(table.sorted.size());
  table.sorted.insert(table.sorted.end(), table.entered.begin(), table.entered.end());
  std::inplace_merge(table.sorted.begin(), table.sorted.begin() + before, table.sorted.end(),
                     byName);
  table.entered = {};
}

uint32_t ProcedureList::FindNearestProcedure(std::string_view name) const {
  const auto& sorted = Sorted();
  auto place = std::upper_bound(sorted.begin(), sorted.end(), name,
                                [](std::string_view wanted, const TamberProcedure* known) {
                                  return kel::CompareNoCase(wanted, known->GetName().View()) < 0;
                                });
  return static_cast<uint32_t>(place - sorted.begin());
}

uint32_t ProcedureList::FindProcedure(std::string_view name) const {
  if (GetProcedure(name) == nullptr) return 0;
  // The last of equal names is the one just before where a further one would go.
  return FindNearestProcedure(name);
}

TamberProcedure* ProcedureList::GetProcedure(uint32_t index) const {
  return index == 0 || index > Sorted().size() ? nullptr : Sorted()[index - 1];
}

TamberProcedure* ProcedureList::GetProcedure(std::string_view name) const {
  const auto& byName = table_.Read().byName;
  const auto found = byName.find(name);
  return found == byName.end() ? nullptr : found->second;
}

TamberProcedure* ProcedureList::RemoveProcedure(std::string_view name) {
  const uint32_t index = FindProcedure(name);
  if (index == 0) return nullptr;
  Table& table = Own();
  TamberProcedure* const removed = table.sorted[index - 1];
  table.byName.erase(table.byName.find(name));
  table.sorted.erase(table.sorted.begin() + (index - 1));
  return removed;
}

bool ProcedureList::DeleteProcedure(std::string_view name) {
  return RemoveProcedure(name) != nullptr;
}

void ProcedureList::TakeOut(const Set& procedures) {
  Table& table = Own();
  // Taking many names out one by one takes longer than entering those that stay.
  decltype(table.byName) kept;
  for (const auto& entry : table.byName)
    if (!procedures.contains(entry.second)) kept.insert(entry);
  table.byName.swap(kept);
  tamber::LeaveContents(kept);
  for (auto* list : {&table.sorted, &table.entered})
    std::erase_if(*list, [&](const auto* procedure) { return procedures.contains(procedure); });
}

void ProcedureList::DestroyProcedures(const Set& procedures) {
  TakeOut(procedures);
  Pool& own = *pools_.back();
  if (pools_.back().use_count() > 1) return;
  const auto gone = std::stable_partition(own.begin(), own.end(), [&](const auto& procedure) {
    return !procedures.contains(procedure.get());
  });
  Pool dropped(std::make_move_iterator(gone), std::make_move_iterator(own.end()));
  own.erase(gone, own.end());
  tamber::LeaveContents(dropped);
}

std::vector<TamberProcedure*> ProcedureList::SharePools() {
  std::vector<TamberProcedure*> all;
  for (const auto& pool : pools_) {
    for (const auto& procedure : *pool) all.push_back(procedure.get());
  }
  if (!pools_.back()->empty()) pools_.push_back(std::make_shared<Pool>());
  return all;
}

void ProcedureList::ClearList() {
  table_ = kel::Cow<Table>();
  version_ = tamber::NextEpoch();
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
    for (const TamberProcedure* procedure : Sorted()) write(procedure);
    return;
  }
  for (std::string_view name : selection.Names()) write(GetProcedure(name));
}
