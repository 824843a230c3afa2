#pragma once

#include <memory>

class TamberContext;
class VarList;

namespace tamber {

class ContextState;

/// Gives a new context its predefined names, types, errors and built-in modules. They are made
/// once in a process; every context starts from the same unchanging tables and gets tables of its
/// own only where it changes something.
void ApplyDefaults(TamberContext& context);

/// Adds what of these types, constants and functions the context has lost.
void RestoreBuiltIns(TamberContext& context);

/// Gives a called script's context what the caller's scopes hold, copied.
void InheritScopes(ContextState& from, ContextState& to);

/// The variables of a scope once more.
std::unique_ptr<VarList> CloneScope(const VarList& list);
/// The same of a list that threads read at the same time: nothing is shared with it.
std::unique_ptr<VarList> SeparateScope(const VarList& list);

/// Drops globals, constants and types that a script brought, at a reset.
void ForgetScript(ContextState& state);
/// Puts the predefined globals back to their initial values.
void RestorePredefined(ContextState& state);

}  // namespace tamber
