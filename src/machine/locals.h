#pragma once

#include <string_view>
#include <vector>

#include "values/typedesc.h"

namespace tamber {

/// A local variable or parameter of a procedure; its position in the table is its slot.
struct Local {
  Name name;
  TypeRef type;
  uint32_t arraySize = 0;  ///< elements that a declaration gives it
  bool isParameter = false;
  bool isReference = false;
  bool needsObject = false;  ///< lives in a Variable because somebody may want one; see CodeBuilder
};

/// The locals of one procedure in the order of declaration; parameters come first.
class LocalTable {
 public:
  /// Slot of a name, -1 when there is none.
  int32_t Find(std::string_view name) const;
  /// Adds and returns the slot. The name must be new.
  uint32_t Add(Local local);
  uint32_t Count() const { return static_cast<uint32_t>(locals_.size()); }
  const Local& At(uint32_t slot) const { return locals_[slot]; }
  Local& At(uint32_t slot) { return locals_[slot]; }

 private:
  void Index(uint32_t slot);

  std::vector<Local> locals_;
  std::vector<int32_t> table_;  // open addressing by folded hash, used above a few names
};

/// A name in a statement or expression, as the compiler understood it.
struct VarUse {
  Name name;
  int32_t slot = -1;  ///< of a local; -1: a global or external, looked up when it runs
  TypeRef type;
};

}  // namespace tamber
