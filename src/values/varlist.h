#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "kel/export.h"
#include "kel/kelstring.h"
#include "values/variable.h"

/// Scope bits; a lookup that takes several searches them in this order.
enum enum_VarListType : uint32_t {
  VARLIST_LOCAL = 1,
  VARLIST_GLOBAL = 2,
  VARLIST_CONSTANT = 4,
  VARLIST_EXTERNAL = 8,
};

/// An ordered list of variables that it owns, found by 0-based position or by name.
///
/// A list keeps the order of insertion or, in sort mode, the order of names. Names are those that
/// the variables carry themselves (a reference its own) and are compared without regard to ASCII
/// case. A position is good until the list next changes.
class TAMBER_API VarList {
 public:
  static constexpr uint32_t kNotFound = 0xFFFFFFFFu;

  explicit VarList(bool sorted = false) : sorts_(sorted) {}
  /// Clones every variable.
  VarList(const VarList& other);
  VarList(VarList&& other) noexcept;
  VarList& operator=(VarList other) noexcept;
  ~VarList();

  bool GetAutoSort() const { return sorts_; }
  /// Sort mode takes effect with the next look-up or insertion.
  void SetAutoSort(bool sorted);
  uint32_t GetSize() const { return static_cast<uint32_t>(items_.size()); }

  /// Position of the first variable of this name, or kNotFound.
  uint32_t FindVariable(std::string_view name) const;
  uint32_t FindVariable(const tamber::Name& name) const;
  /// The variable, borrowed; null when there is none.
  Variable* GetVariable(uint32_t position) const;
  Variable* GetVariable(std::string_view name) const;

  /// Takes ownership of the variable and returns its position: the sorted place in sort mode, else
  /// the end. With `unique`, a variable of that name that is there already stays: its position is
  /// returned,
  /// `*inserted` is false, and the caller still owns the new one. Null: kNotFound.
  uint32_t AddVariable(Variable* variable, bool unique = false, bool* inserted = nullptr);
  /// Adds a variable whose place is the last one, in sort mode too; otherwise as above.
  void AddLast(Variable* variable);
  void Reserve(uint32_t count) { items_.reserve(count); }

  /// Sorts and makes the index, after which threads may look names up at the same time.
  void Settle();
  /// A list as `origin` is, which was settled and stays as it is as long as anything of it is
  /// missing here: each variable is copied when it is first asked for, and shares nothing that
  /// counts with its original.
  static VarList CopyLater(const VarList& origin);
  /// Copies what is still missing.
  void Complete() const;
  /// Takes a variable out; its holder becomes the caller's. Null when out of range.
  Variable* RemoveVariable(uint32_t position);
  Variable* RemoveVariable(std::string_view name);
  void DeleteVariable(uint32_t position);
  /// Puts a variable, taking it over, in the place of another, which is released. False: out of
  /// range, and the caller still owns it.
  bool ReplaceVariable(uint32_t position, Variable* variable);
  void SwapVariables(uint32_t first, uint32_t second);
  /// Sorts by name; variables of one name keep their order.
  void Sort();
  void ClearList();

 private:
  TAMBER_LOCAL void SortIfNeeded() const;
  TAMBER_LOCAL uint32_t Find(std::string_view name, uint32_t hash) const;
  TAMBER_LOCAL Variable* CopyItem(uint32_t position) const;
  TAMBER_LOCAL uint32_t FindSorted(std::string_view name) const;
  TAMBER_LOCAL uint32_t FindIndexed(std::string_view name, uint32_t hash) const;
  TAMBER_LOCAL uint32_t FindHashed(std::string_view name, uint32_t hash) const;
  TAMBER_LOCAL void BuildIndex() const;
  TAMBER_LOCAL void AddToIndex(uint32_t position) const;
  void DropIndex() { index_.clear(); }

  mutable std::vector<Variable*> items_;  // null: still to be copied from the origin
  mutable std::vector<uint32_t> index_;   // open addressing by folded hash; empty: not built
  mutable const VarList* origin_ = nullptr;
  bool sorts_;
  mutable bool sortedNow_ = true;  // looked at in sort mode only
};
