#pragma once

#include <cstdint>
#include <memory>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "kel/export.h"

class TamberScript;

/// The scripts that are loaded into a context, in the order of loading.
class TAMBER_API ScriptList {
 public:
  ScriptList();
  ScriptList(const ScriptList&) = delete;
  ScriptList& operator=(const ScriptList&) = delete;
  virtual ~ScriptList();

  /// Takes ownership; returns the script's position, from 0. A second script of a name is kept too,
  /// and found by that name from then on.
  uint32_t AddScript(std::unique_ptr<TamberScript> script);
  /// The script of exactly this name, borrowed; null when there is none.
  TamberScript* FindScript(std::string_view name) const;
  TamberScript* GetScript(uint32_t position) const { return scripts_[position].get(); }
  uint32_t GetScriptCount() const { return static_cast<uint32_t>(scripts_.size()); }
  void ClearScriptList();

 private:
  std::vector<std::unique_ptr<TamberScript>> scripts_;
  /// Of the first so many: it is made when somebody looks for a name.
  mutable std::unordered_map<std::string_view, TamberScript*> byName_;
  mutable uint32_t named_ = 0;
};
