#pragma once

#include <memory>

class SessionStore;
class Variable;

namespace tamber {

class ContextState;

/// Writes the globals declared with `session` to the store under the current session, in one step;
/// nothing without a session. False then, and when the store failed.
bool SaveSessionVariables(ContextState& state);

/// Whether the script has declared some, in a session.
bool HasSessionVariables(const ContextState& state);

/// Gives a variable what the current session holds under its name, if there is such.
void LoadSessionVariable(ContextState& state, Variable& variable);

/// While one exists, session declarations load from one look at the store. What failed is logged at
/// its end.
class SessionReading {
 public:
  explicit SessionReading(ContextState& state);
  SessionReading(const SessionReading&) = delete;
  SessionReading& operator=(const SessionReading&) = delete;
  ~SessionReading();

 private:
  ContextState& state_;
  std::shared_ptr<SessionStore> store_;  ///< null when another one does the work
};

}  // namespace tamber
