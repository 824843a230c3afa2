#pragma once

#include <memory>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "kel/cow.h"
#include "kel/export.h"
#include "kel/kelascii.h"
#include "kel/kelstring.h"

class TamberProcedure;

namespace tamber {
class CompileSession;
struct NameView;
}  // namespace tamber

/// The procedures of a context, sorted by name without regard to case. Indexes count from 1; 0 is
/// none, and an index is good until the list next changes.
///
/// Calls are bound to procedure objects, so a procedure that is taken out of the list lives on as
/// long as anything of its context's scripts may call it: until ClearList, and until the run that
/// is active then has ended.
class TAMBER_API ProcedureList {
 public:
  using Pool = std::vector<std::unique_ptr<TamberProcedure>>;
  using Set = std::unordered_set<const TamberProcedure*>;

  ProcedureList();
  ProcedureList(const ProcedureList& other);
  ProcedureList& operator=(const ProcedureList&) = delete;
  virtual ~ProcedureList();

  /// Takes ownership; returns the index.
  uint32_t AddProcedure(std::unique_ptr<TamberProcedure> procedure);
  uint32_t FindProcedure(std::string_view name) const;
  TamberProcedure* GetProcedure(uint32_t index) const;
  TamberProcedure* GetProcedure(std::string_view name) const;
  /// Another number whenever a name may have got or lost its procedure.
  uint64_t GetProcedureVersion() const { return version_; }
  uint32_t GetProcedureCount() const { return static_cast<uint32_t>(Sorted().size()); }
  /// Takes a procedure out of the list, which still owns it, and returns it borrowed; null when
  /// there is none of the name.
  TamberProcedure* RemoveProcedure(std::string_view name);
  /// Takes the name out of the list; false when there is none.
  bool DeleteProcedure(std::string_view name);
  void ClearList();
  /// "Procedures dump:" and a line each; `words` limits it to these names ("*" and "" as for the
  /// variable dumps).
  void DumpProcedures(KelString& out, const KelString& words) const;
  /// All procedures that code of this list may call, those that were taken out of it among them.
  /// From now on they are shared, and stay as long as any list that knows them.
  std::vector<TamberProcedure*> SharePools();
  /// Around every run and compilation: what ClearList takes away meanwhile stays until the last has
  /// ended.
  void BeginRun() { ++runs_; }
  void EndRun() {
    if (--runs_ == 0 && !retired_.empty()) retired_.clear();
  }

 private:
  friend class tamber::CompileSession;
  friend struct tamber::NameView;
  /// AddProcedure for one of many, whose index nobody wants to know.
  TAMBER_LOCAL void Enter(std::unique_ptr<TamberProcedure> procedure);
  /// Takes procedures out of the list, which still owns them.
  TAMBER_LOCAL void TakeOut(const Set& procedures);
  /// Destroys procedures of this list that nothing calls. Those that a copy of the list may know
  /// only leave the list.
  TAMBER_LOCAL void DestroyProcedures(const Set& procedures);
  TAMBER_LOCAL uint32_t FindNearestProcedure(std::string_view name) const;

  struct Table {
    std::vector<TamberProcedure*> sorted;
    std::vector<TamberProcedure*> entered;  ///< since somebody last looked at the order
    std::unordered_map<std::string_view, TamberProcedure*, kel::NoCaseHash, kel::NoCaseEqual>
        byName;
  };
  TAMBER_LOCAL Table& Own();
  void SortEntered();
  /// The order is made when somebody looks; that changes nothing that can be seen.
  const std::vector<TamberProcedure*>& Sorted() const {
    if (!table_.Read().entered.empty()) const_cast<ProcedureList*>(this)->SortEntered();
    return table_.Read().sorted;
  }
  const kel::Cow<Table>& SortedTable() const {
    static_cast<void>(Sorted());
    return table_;
  }

  kel::Cow<Table> table_;
  uint64_t version_ = 0;  ///< another number after every change, in all lists of the process
  /// Our own procedures last; before them those of the contexts that ours were copied from.
  std::vector<std::shared_ptr<Pool>> pools_;
  std::vector<std::shared_ptr<Pool>> retired_;
  uint32_t runs_ = 0;
};
