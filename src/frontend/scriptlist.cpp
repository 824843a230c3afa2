#include "frontend/scriptlist.h"

#include "frontend/script.h"

ScriptList::ScriptList() = default;
ScriptList::~ScriptList() = default;

uint32_t ScriptList::AddScript(std::unique_ptr<TamberScript> script) {
  scripts_.push_back(std::move(script));
  return GetScriptCount() - 1;
}

TamberScript* ScriptList::FindScript(std::string_view name) const {
  // The key is a view of a script's own name, and scripts leave the list all at once.
  for (; named_ < GetScriptCount(); ++named_)
    byName_[scripts_[named_]->GetName()] = scripts_[named_].get();
  const auto found = byName_.find(name);
  return found == byName_.end() ? nullptr : found->second;
}

void ScriptList::ClearScriptList() {
  byName_.clear();
  named_ = 0;
  scripts_.clear();
}
