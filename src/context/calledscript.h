#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "context/nameview.h"
#include "context/tambctxt.h"
#include "kel/filestat.h"
#include "values/varholder.h"

namespace tamber {

/// What compiling a script has found outside of its context, for finding out whether it would find
/// the same again.
struct CompileInputs {
  struct Search {
    KelString name;
    KelString directories;
    KelString path;  ///< what was found
  };
  struct Source {
    KelString path;
    kel::FileVersion version;
  };
  std::vector<Search> searches;
  std::vector<Source> sources;
  /// It has done what has to be done anew for every run.
  bool hasEffects = false;
};

/// A script that another one calls, in a context of its own. After a run it can be run again as if
/// it had just been compiled, as long as that would make the same of it: its files are as they
/// were, and so is what it sees of its caller but for the values of variables, which it gets anew.
class CalledScript {
 public:
  CalledScript(ContextState& caller, const KelString& path);
  CalledScript(const CalledScript&) = delete;
  CalledScript& operator=(const CalledScript&) = delete;
  ~CalledScript();

  TamberContext& Context() { return context_; }
  const KelString& Path() const { return path_; }

  bool Compile(const kel::Place& place, const kel::FileVersion& version);
  /// Makes it what it was when it had been compiled. False: it has to be compiled again, in another
  /// context.
  bool Resume(const kel::FileVersion& version);
  /// After a run: gives back what a script holds. False when it cannot be run again.
  bool Settle();

 private:
  /// A variable that the script has from its caller.
  struct Inherited {
    Variable* own;
    Variable* callers;
    bool isManaged;
  };
  /// One of its own, as it begins.
  struct Declared {
    Variable* own;
    VarHolder initial;
  };
  bool Remember(const kel::FileVersion& version);
  bool RememberVariables(const VarList* list, const VarList* callers);
  bool SeesTheSame() const;
  bool FindsTheSame();
  void TakeSettings();
  void TakeValues();

  ContextState& caller_;
  KelString path_;
  NameView callers_;
  KelString scriptKey_;
  TamberContext context_;
  CompileInputs inputs_;
  kel::FileVersion version_;
  std::optional<NameView> compiled_;  ///< null when it cannot be run again
  std::vector<Inherited> inherited_;
  std::vector<Declared> declared_;
};

/// The scripts that a context has called and may call again.
class CalledScripts {
 public:
  /// One that is ready to run; null when there is none.
  std::unique_ptr<CalledScript> Take(const KelString& path, const kel::FileVersion& version,
                                     uint32_t& keptByAll);
  /// After a run. `keptByAll` counts those of all contexts that call each other.
  void Keep(std::unique_ptr<CalledScript> script, uint32_t& keptByAll);
  void Clear(uint32_t& keptByAll);

 private:
  std::vector<std::unique_ptr<CalledScript>> scripts_;  ///< the one called last is last
};

}  // namespace tamber
