#pragma once

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "kel/export.h"
#include "kel/kelstring.h"
#include "values/typedesc.h"
#include "values/variable.h"

/// Binds a type name to a prototype: variables of the type are clones of it.
class TAMBER_API TamberType {
 public:
  /// Takes ownership of the prototype; null acts as a VarNone.
  TamberType(const KelString& name, Variable* prototype, uint32_t flags);
  TamberType(const TamberType& other);
  TamberType& operator=(const TamberType&) = delete;
  virtual ~TamberType();

  KelString GetTypeName() const { return KelString(name_.View()); }
  /// Renames a type that is in no list; a list finds its types by the name they were added with.
  void SetTypeName(const KelString& name) { name_ = tamber::Name(name.View()); }
  /// The prototype, borrowed: to be looked at and cloned, never kept with a holder.
  Variable* GetVariable() const { return prototype_; }
  uint32_t GetTypeFlags() const { return flags_; }
  void SetTypeFlags(uint32_t flags) { flags_ = flags; }
  int32_t IsArray() const { return prototype_->IsArray(); }
  int32_t IsSameType(const TamberType* other) const;
  int32_t IsCompatibleType(const TamberType* other) const;
  /// A new variable of the type; it is the caller's.
  Variable* CreateVariable(const KelString& name) const;
  /// One line: the type name and the word of its prototype.
  void DumpType(KelString& out) const;

  const tamber::Name& OwnName() const { return name_; }
  const tamber::TypeRef& Type() const;

  /// From now on threads read the prototype at the same time, so that values are copied from it
  /// and never shared.
  void Separate() { separates_ = true; }

 private:
  Variable* NewVariable(const tamber::Name& name) const;

  tamber::Name name_;
  Variable* prototype_;
  uint32_t flags_;
  bool separates_ = false;
};

namespace tamber {
struct NameView;
struct TypeTable;
}  // namespace tamber

/// The types that a script can name, sorted by name. Names are matched without regard to ASCII
/// case.
///
/// Positions are 0-based and good until the list next changes. The default types are one table that
/// all contexts share; a list that is changed, or hands a type out for changes, first makes copies.
class TAMBER_API TypeList {
 public:
  static constexpr uint32_t kNotFound = 0xFFFFFFFFu;

  TypeList();
  TypeList(const TypeList& other);
  TypeList& operator=(const TypeList& other);
  virtual ~TypeList();

  /// Adds a type and returns its position; the prototype passes to the list. A type of that name
  /// that is there already is replaced.
  uint32_t AddType(const KelString& name, Variable* prototype, uint32_t flags);
  /// The same for an entry, which passes to the list. Without `replace`, an entry of that name that
  /// is there already stays: its position is returned, and the caller still owns the new one.
  uint32_t AddType(TamberType* type, int32_t replace);
  uint32_t GetTypeCount() const;
  /// Position of a type, or kNotFound.
  uint32_t FindType(const KelString& name) const;
  /// The entry, borrowed; null when there is none.
  TamberType* GetType(uint32_t position);
  TamberType* GetType(const KelString& name);
  const TamberType* GetType(uint32_t position) const;
  const TamberType* GetType(const KelString& name) const;
  /// "" when out of range.
  KelString GetTypeName(uint32_t position) const;
  /// Hands the entry to the caller; null when out of range.
  TamberType* RemoveType(uint32_t position);
  void DeleteType(uint32_t position);
  /// Adds the types of the language itself, with flags 1.
  void CreateDefaultTypes();
  /// Appends the types that `names` lists (separated by blanks, ",", ";" or ":"), each line after
  /// `indent`; all of them when `names` holds "*" or nothing.
  void DumpTypes(KelString& out, const KelString& names, const KelString& indent) const;

  /// The entry of a type word, without copying anything; null when there is none.
  const TamberType* Lookup(std::string_view word) const;
  /// The type that a word names; null when there is none.
  tamber::TypeRef FindTypeRef(std::string_view word) const;

  /// This list's content as a table that lists of any thread start from; this one starts from it as
  /// well. The values of its prototypes then live as long as the process: for tables made once.
  std::shared_ptr<const tamber::TypeTable> ShareTypes();
  /// Drops everything and starts from a shared table.
  void UseTypes(std::shared_ptr<const tamber::TypeTable> types);
  /// The same for a table that goes with the last list which uses it: variables of its types share
  /// nothing with its prototypes.
  void ShareWithPrograms();

 private:
  friend struct tamber::NameView;
  /// Another number after every change, in all lists of the process; lists that share a table have
  /// the same.
  TAMBER_LOCAL uint64_t Version() const;
  TAMBER_LOCAL uint32_t FindNearestType(const KelString& name) const;
  TAMBER_LOCAL const tamber::TypeTable& Table() const;
  TAMBER_LOCAL tamber::TypeTable& Own();

  std::shared_ptr<const tamber::TypeTable> shared_;
  std::unique_ptr<tamber::TypeTable> own_;  // in use when shared_ is null
};
