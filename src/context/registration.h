#pragma once

#include <map>
#include <memory>
#include <vector>

#include "context/tambctxt.h"
#include "functions/modulelist.h"

namespace tamber {

struct RegistrationHistory;

/// What a module file brought into its context.
class ContextRegistration final : public ModuleRegistration {
 public:
  explicit ContextRegistration(TamberContext& context);
  ContextRegistration(const ContextRegistration&) = delete;
  ContextRegistration& operator=(const ContextRegistration&) = delete;
  ~ContextRegistration() override;

  /// Registers the lists of a record, in their fixed order, and notes what is new.
  void Register(const FUNCMOD_REGISTRATION* record);
  void TakeBack() override;

 private:
  struct Function {
    std::shared_ptr<const TamberFunction> added;
    std::shared_ptr<const TamberFunction> replaced;  ///< null: nothing was replaced
  };
  using Prototypes = std::map<const TamberContext*, const Variable*>;

  void NoteFunctions(const FunctionList& before);
  void TakeBackFunctions();

  TamberContext& context_;
  std::shared_ptr<RegistrationHistory> history_;
  std::vector<KelString> constants_;
  std::vector<KelString> types_;
  std::vector<Function> functions_;
  std::vector<std::pair<KelString, int32_t>> errors_;
  std::vector<Prototypes*> prototypes_;
};

// The built-in modules are registered piece by piece, each when somebody needs one of its kind.
// Their lists are shared by all contexts and so never written to; the codes of their errors are
// found through the constants of their names.

/// Registers the types of a built-in module.
void RegisterBuiltInTypes(TamberContext& context, const FUNCMOD_REGISTRATION* record);
/// Registers its constants.
void RegisterBuiltInConstants(TamberContext& context, const FUNCMOD_REGISTRATION* record);
/// Registers its errors, without the constants of their names.
void RegisterBuiltInErrors(ErrorList& errors, const FUNCMOD_REGISTRATION* record);
/// Adds the names of its constants, errors and functions.
void AddBuiltInNames(kel::NameFilter& names, const FUNCMOD_REGISTRATION* record);
/// Registers its functions, no two of which have the same name and parameters. Their prototypes are
/// read when they are needed, with `types`, which stays for good.
void RegisterBuiltInFunctions(FunctionList& functions, const FUNCMOD_REGISTRATION* record,
                              const TypeList& types);

}  // namespace tamber
