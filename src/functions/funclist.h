#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "functions/function.h"
#include "kel/cow.h"
#include "kel/export.h"
#include "kel/kelascii.h"
#include "kel/kelstring.h"
#include "kel/namefilter.h"

class ExpressionParser;

namespace tamber {
class Machine;
class NameMemo;
struct NameView;
}  // namespace tamber

/// The built-in functions that scripts may call, ordered by name.
///
/// Entries are addressed by a 1-based index; 0 means "none". Names ignore case. Overloads of a name
/// stand side by side in an order that follows from the order of registration and decides ties.
/// Copies share one table, entries included, until one of them changes its own; the entries
/// themselves never change, so a table may be shared between contexts in different threads.
class TAMBER_API FunctionList {
 public:
  enum FuncType_e : uint16_t {
    FUNCTYPE_HIDDEN = 0,  ///< an unnamed string parameter comes before the declared ones
    FUNCTYPE_NORMAL = 1,
    FUNCTYPE_CONTEXT = 2,  ///< the implementation also receives the context
  };

  FunctionList() = default;
  FunctionList(const FunctionList&) = default;
  /// A list that starts as a copy of another one, which is asked for when somebody looks for a name
  /// that it may hold, or for anything else.
  template <const FunctionList& (*Source)()>
  static FunctionList Deferred(const kel::NameFilter& names) {
    FunctionList list;
    list.table_ = kel::Cow<Table>(+[]() -> const kel::Cow<Table>& { return Source().table_; });
    list.names_ = &names;
    return list;
  }
  FunctionList& operator=(const FunctionList&) = default;
  virtual ~FunctionList() = default;
  /// Order of two entries by name without regard to case; null comes after everything.
  virtual int32_t SortCompare(const TamberFunction* a, const TamberFunction* b) const;

  /// Adds a function and returns its index; 0 for an empty name. Takes ownership of the return
  /// value and the parameters, also when it refuses. A function of the same name and parameter
  /// types stays, and its index is returned, unless `replace` is set.
  uint32_t AddFunction(const KelString& name, Variable* returnValue,
                       TamberFunctionPtr implementation, VarList* parameters, uint16_t type,
                       bool replace);
  uint32_t AddFunction(const KelString& name, Variable* returnValue,
                       TamberFunctionExPtr implementation, VarList* parameters, uint16_t type,
                       bool replace);
  uint32_t AddFunction(std::shared_ptr<const TamberFunction> function, bool replace);
  /// Adds a function whose index nobody wants to know, as above without `replace`. A table that is
  /// not made yet is not made for it.
  void AddLater(std::shared_ptr<const TamberFunction> function);
  /// Adds a function that has a name, and other parameters than any of that name that is there:
  /// none of their prototypes is read.
  uint32_t AddOverload(std::shared_ptr<const TamberFunction> function);

  /// Index of some function of that name, or 0.
  uint32_t FindFunction(std::string_view name) const;
  /// Index of the overload that a call with these arguments takes, or 0 (error 20507). The
  /// variables only say the types of the arguments.
  uint32_t FindBestSignature(const KelString& name, const VarList& arguments) const;
  uint32_t FindBestSignature(std::string_view name,
                             std::span<const tamber::TypeDesc* const> arguments) const;
  /// Whether the parameters of the overload that was found can take the arguments: the search asks
  /// whether an argument's type could be assigned from the parameter's, this asks for the other
  /// direction. False: error 20505.
  bool TakesArguments(uint32_t index, std::span<const tamber::TypeDesc* const> arguments) const;

  /// Takes an entry out, or puts `former`, which has the same name, in its place. False when the
  /// entry is not in the list any more.
  bool ExchangeFunction(const TamberFunction* entry, std::shared_ptr<const TamberFunction> former);

  /// Borrowed until the list changes; null for 0 and out of range.
  const TamberFunction* GetFunction(uint32_t index) const;
  /// As above, for whoever keeps it.
  std::shared_ptr<const TamberFunction> ShareFunction(uint32_t index) const;
  uint32_t GetFunctionCount() const;
  void ClearList();
  /// From now on the functions that are in the list are lent to whoever shares them, and live as
  /// long as a list that has this table: threads that call them would otherwise all count.
  /// A function reads its prototype when it is first asked for it: now, or later.
  enum class Prototypes : uint8_t { Later, Read };
  void LendFunctions(Prototypes prototypes);

  /// Appends "Functions dump:" and a prototype per line, each after `indent`: of the functions that
  /// `names` lists (separated by blanks, ",", ";" or ":"), or of all of them when `names` holds "*"
  /// or nothing.
  void DumpFunctions(KelString& out, const KelString& names, const KelString& indent) const;
  /// The prototype of a function as it would be registered; "" for 0 and out of range.
  KelString PrototypeText(uint32_t index) const;

 private:
  using Entries = std::vector<std::shared_ptr<const TamberFunction>>;
  struct Table {
    Entries functions;  // entry n is at n - 1
    /// Those of the functions that are only lent there; shared by the copies of the table.
    std::shared_ptr<const Entries> lenders;
  };

  friend class tamber::Machine;
  friend class tamber::NameMemo;
  friend struct tamber::NameView;
  friend class ExpressionParser;
  /// For a call that was compiled with `bound` although types of arguments were unknown: the
  /// overload for the types that have come. It promises what `bound` promises. Null: none, and
  /// `error` is why.
  TAMBER_LOCAL std::shared_ptr<const TamberFunction> ChooseOverload(
      const TamberFunction& bound, std::span<const tamber::TypeDesc* const> arguments,
      int32_t& error) const;
  /// Whether all overloads with as many parameters have results of the same type.
  TAMBER_LOCAL bool HasOneResult(uint32_t index) const;
  /// Where a function of that name is inserted.
  TAMBER_LOCAL uint32_t FindNearestFunction(std::string_view name) const;
  /// The overload with exactly the parameter types of `wanted`, or 0.
  TAMBER_LOCAL uint32_t FindFunctionFromSig(std::string_view name,
                                            const TamberFunction& wanted) const;
  TAMBER_LOCAL uint32_t FindFirstOverload(std::string_view name) const;
  TAMBER_LOCAL uint32_t NextOverload(uint32_t index) const;
  /// FindBestSignature among the overloads from the first of a name on.
  TAMBER_LOCAL uint32_t FindBestOverload(uint32_t first,
                                         std::span<const tamber::TypeDesc* const> arguments) const;
  TAMBER_LOCAL uint32_t BestOverload(uint32_t first,
                                     std::span<const tamber::TypeDesc* const> arguments,
                                     bool anyForArray) const;
  TAMBER_LOCAL void DumpFunction(KelString& out, const KelString& indent, uint32_t index) const;

  TAMBER_LOCAL bool CannotHold(std::string_view name) const;
  TAMBER_LOCAL const Table& Functions() const;
  TAMBER_LOCAL Table& OwnFunctions();
  TAMBER_LOCAL void AddWaiting();

  kel::Cow<Table> table_;
  std::vector<std::shared_ptr<const TamberFunction>> waiting_;  ///< for the table to be made
  const kel::NameFilter* names_ = nullptr;                      ///< of a table that is not made yet
  uint64_t version_ = 0;  ///< another number after every change, in all lists of the process
};
