#pragma once

#include "machine/codebuilder.h"

class StatementList;
class TamberProcedure;

namespace tamber {

/// Works out which locals of a procedure live in objects: those that a reference parameter may
/// stand for, that a built-in may change or keep, that the engine itself reads by name, that may be
/// there or not where somebody may look for them by name, and those that a statement may meet
/// before their declaration has run. `observed`: all of them do.
LocalFacts FindLocalFacts(const TamberProcedure& procedure, const StatementList& statements,
                          bool observed);

}  // namespace tamber
