#pragma once

namespace tamber {

class ContextState;

/// Writes the globals declared with `session` to the store under the current session, in one step;
/// nothing without a session.
void SaveSessionVariables(ContextState& state);

}  // namespace tamber
